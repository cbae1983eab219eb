// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"
#include "driver/log/log_message.h"

#include <istream>
#include <string>
#include <vector>

/// What the registry does with its content, apart from where that is kept.
namespace Core::KRV {

/// Calls `callback` with each valid record, from which it may move, up to the end of the stream or its first failure;
/// bad lines are logged and skipped.
template <typename Callback>
void readLines(std::istream& lines, Callback callback) {
  RegistryRecord record{};
  for (std::string line; std::getline(lines, line);) {
    if (line.empty())
      continue;
    if (parseRecord(line, record))
      callback(record);
    else
      LogMessage(LogLevel::Warning) << "Bad registry record found: '" << line << "'";
  }
}

/// The records that stay when `added` follows them, in their order.
std::vector<RegistryRecord> prune(std::vector<RegistryRecord> records, const RegistryRecord& added);

/// Writes the line of each record and flushes after each. Failures show in the state of the stream.
void writeLines(std::ostream& lines, const std::vector<RegistryRecord>& records);

} // namespace Core::KRV
