// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <sstream>

enum class LogLevel : std::int32_t {
  Info = 0,
  Warning = 1,
  Error = 2,
};

/// One line of the log. The parts are collected, and the destructor writes the line to standard output at once, so that
/// lines do not mix. A message without inserted text writes nothing.
///
///   LogMessage(LogLevel::Error) << "Failed to read RPM package: " << path;
///
/// A level other than the three above writes the text without a mark. A path is written by its standard inserter:
/// quoted, with backslash escapes. A null character pointer inserts nothing, and everything inserted after it is lost.
class LogMessage {
public:
  explicit LogMessage(LogLevel level) : m_level(level) {}
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;

  /// Writes the line and flushes standard output. An exception while writing terminates the process.
  ~LogMessage();

  template <typename Part>
  LogMessage& operator<<(const Part& part) {
    m_text << part;
    return *this;
  }

private:
  LogLevel m_level;
  std::ostringstream m_text;
};
