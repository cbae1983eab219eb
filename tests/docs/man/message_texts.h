// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "driver/log/messages.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

/// The fixed pieces of log messages. A piece has two letters and a space. The first piece of a message begins with its
/// level mark: "[E] Couldn't move ", " to ".
using MessageTexts = std::set<std::string>;

/// A message of the manual page: a regular expression for the line, and its fixed pieces.
struct PageMessage {
  std::string pattern;
  MessageTexts texts;
};

/// The messages of a page in mdoc(7): its .It lines that begin with a level mark. Throws std::runtime_error if one of
/// them uses other macros than the head of the page allows.
std::vector<PageMessage> messagesOfPage(const std::string& page);

/// The fixed pieces of a message of the log.
MessageTexts textsOfForm(const MessageForm& form);

/// The texts in the string literals of C++ source code that look like pieces of a thrown error, which is logged as an
/// error. A piece that begins with a capital letter begins a message.
MessageTexts textsOfSource(std::string_view source);
