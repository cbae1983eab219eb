// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"
#include "driver/log/messages.h"

#include <istream>
#include <string>
#include <vector>

/// Reading, pruning and writing records, without locks and files.
namespace Core::KRV {

/// Calls `callback` with each valid record, up to the end or the first failure of the stream; the callback may move
/// from the record. Bad lines are logged and skipped.
template <typename Callback>
void readLines(std::istream& lines, Callback callback) {
  RegistryRecord record{};
  for (std::string line; std::getline(lines, line);) {
    if (line.empty())
      continue;
    if (parseRecord(line, record))
      callback(record);
    else
      logLine<Message::BadRecord>(line);
  }
}

/// Removes the records that `added` replaces; the rest keeps its order.
std::vector<RegistryRecord> prune(std::vector<RegistryRecord> records, const RegistryRecord& added);

/// Writes the line of each record and flushes after each. A failure sets the state of the stream.
void writeLines(std::ostream& lines, const std::vector<RegistryRecord>& records);

} // namespace Core::KRV
