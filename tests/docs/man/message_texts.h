// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

/// The fixed pieces of the log's messages. A piece holds two letters and a space; the one that begins a
/// message begins with its level mark: "[E] Couldn't move ", " to ".
using MessageTexts = std::set<std::string>;

/// A message as the manual page shows it: a regular expression for the line, and its fixed pieces.
struct PageMessage {
  std::string pattern;
  MessageTexts texts;
};

/// The messages of a page in mdoc(7): its .It lines that begin with a level mark. Throws std::runtime_error when one of
/// them uses more of the language than the page's head allows.
std::vector<PageMessage> messagesOfPage(const std::string& page);

/// The texts in the string literals of C++ source code that look like pieces of a message. A piece that begins with a
/// capital letter begins a message, whose level is the statement's, that of a warning for reject(), and that of an
/// error otherwise, because thrown errors are logged as such.
MessageTexts textsOfSource(std::string_view source);
