// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "driver/log/messages.h"

#include <string>
#include <string_view>

namespace LogReport {

/// The meaning of a line that is read alone.
struct ParsedLine {
  enum class Kind {
    Whole,    ///< a message of the tool
    OpenPath, ///< as Whole, but the quoted path does not end in this line
    Unknown,  ///< no message of the tool
  };

  Kind kind;
  Message message = {};
  std::string value = {}; ///< of the message's first placeholder, without quotes and escapes
};

/// Reads a line of the log. Each error line is a message, because an error's text may be any text.
ParsedLine parseLine(std::string_view line);

} // namespace LogReport
