// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry_content.h"

#include <ostream>
#include <unordered_set>
#include <utility>

namespace Core::KRV {

using Event = RegistryRecord::Event;

// Starts at the newest record, because its earlier keys lead to older records.
std::vector<RegistryRecord> prune(std::vector<RegistryRecord> records, const RegistryRecord& added) {
  std::unordered_set<std::string> keyChain(added.prevKeyIds.begin(), added.prevKeyIds.end());
  keyChain.insert(added.keyId);
  const auto stays = [&](const RegistryRecord& older) {
    if (older.packageId != added.packageId || !keyChain.contains(older.keyId))
      return true;
    keyChain.insert(older.prevKeyIds.begin(), older.prevKeyIds.end());
    return added.event == Event::Update && older.event == Event::Install;
  };
  auto firstKept = records.end();
  for (auto record = records.end(); record != records.begin();) {
    if (!stays(*--record))
      continue;
    --firstKept;
    if (firstKept != record)
      *firstKept = std::move(*record);
  }
  records.erase(records.begin(), firstKept);
  return records;
}

void writeLines(std::ostream& lines, const std::vector<RegistryRecord>& records) {
  for (const RegistryRecord& record : records)
    lines << toString(record) << std::endl;
}

} // namespace Core::KRV
