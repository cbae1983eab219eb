// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "fuzz/support.h"
#include "tests/support/environment.h"
#include "tests/support/temp_directory.h"

#include <vector>

namespace {

using Core::KRV::Registry;
using Core::KRV::RegistryRecord;

std::vector<RegistryRecord> readAll() {
  std::vector<RegistryRecord> records;
  Fuzz::require(Registry().foreachRecord([&](const RegistryRecord& record) { records.push_back(record); }),
                "a registry that is there can be read");
  return records;
}

/// A record that supersedes some of the others where there are any: a later event of the last one's package and key.
RegistryRecord nextRecord(const std::vector<RegistryRecord>& records) {
  if (records.empty())
    return {.event = RegistryRecord::Event::Install, .timestamp = 1, .packageId = "p", .keyId = "k", .prevKeyIds = {}};
  RegistryRecord next = records.back();
  next.event = static_cast<RegistryRecord::Event>(next.prevKeyIds.size() % 3);
  return next;
}

/// Whether `after` is `before` without some records of one package, and `added` at the end.
bool follows(const std::vector<RegistryRecord>& after, const std::vector<RegistryRecord>& before,
             const RegistryRecord& added) {
  if (after.empty() || after.back() != added)
    return false;
  auto kept = after.begin();
  const auto end = after.end() - 1;
  for (const RegistryRecord& record : before) {
    if (kept != end && *kept == record)
      ++kept;
    else if (record.packageId != added.packageId)
      return false;
  }
  return kept == end;
}

} // namespace

/// Whatever the registry holds, adding a record leaves a file that reads without a warning and lacks nothing but
/// records of that package.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Support::TempDirectory root;
  static const Support::ScopedEnvironment environment("KRV_ROOT_FS", root.path().string());
  Support::writeFile(root / "var/lib/krv/registry", Fuzz::begin(data, size));

  const std::vector<RegistryRecord> before = readAll();
  if (!before.empty())
    Fuzz::accept();
  const RegistryRecord added = nextRecord(before);
  Fuzz::require(Registry().writeRecord(added), "a record can be added");
  const std::size_t warnings = Fuzz::loggedLines();
  const std::vector<RegistryRecord> after = readAll();
  Fuzz::require(Fuzz::loggedLines() == warnings, "a registry that was written reads without a warning");
  Fuzz::require(follows(after, before, added), "nothing but superseded records is lost, and the new one is last");
  return 0;
}
