// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/log/log_message.h"

#include <iostream>
#include <string>
#include <string_view>

namespace {

std::string_view markOf(LogLevel level) {
  switch (level) {
  case LogLevel::Info:
    return "[I] ";
  case LogLevel::Warning:
    return "[W] ";
  case LogLevel::Error:
    return "[E] ";
  }
  return "";
}

} // namespace

LogMessage::~LogMessage() {
  // Reads the buffer instead of calling tellp(), which returns -1 after a null pointer was inserted; the text before it
  // would be lost.
  const std::string_view text = m_text.view();
  if (text.empty())
    return;
  std::cout << markOf(m_level) << text << std::endl;
}
