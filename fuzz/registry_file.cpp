// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "core/registry_content.h"
#include "fuzz/support.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/temp_directory.h"

#include <sstream>
#include <vector>

namespace {

using Core::KRV::Registry;
using Core::KRV::RegistryRecord;
using Records = std::vector<RegistryRecord>;

Records readText(const std::string& text) {
  Records records;
  std::istringstream lines(text);
  Core::KRV::readLines(lines, [&](RegistryRecord& record) { records.push_back(std::move(record)); });
  return records;
}

/// Does the same as Registry::writeRecord(), without files.
std::string addToText(const std::string& text, const RegistryRecord& added) {
  Records records = Core::KRV::prune(readText(text), added);
  records.push_back(added);
  std::ostringstream lines;
  Core::KRV::writeLines(lines, records);
  return lines.str();
}

std::string addToFile(std::string_view text, const RegistryRecord& added) {
  static const Support::TempDirectory root;
  static const Support::ScopedEnvironment environment("KRV_ROOT_FS", root.path().string());
  const std::filesystem::path registry = root / "var/lib/krv/registry";
  Support::writeFile(registry, text);
  Records before;
  Fuzz::require(Registry().foreachRecord([&](const RegistryRecord& record) { before.push_back(record); }),
                "an existing registry can be read");
  Fuzz::require(before == readText(std::string(text)), "the file gives the same records as its content");
  Fuzz::require(Registry().writeRecord(added), "a record can be added");
  return Support::readFile(registry);
}

/// A later event of the last record's package and key, so that it supersedes earlier records if there are any.
RegistryRecord nextRecord(const Records& records) {
  if (records.empty())
    return {.event = RegistryRecord::Event::Install, .timestamp = 1, .packageId = "p", .keyId = "k", .prevKeyIds = {}};
  RegistryRecord next = records.back();
  next.event = static_cast<RegistryRecord::Event>(next.prevKeyIds.size() % 3);
  return next;
}

/// Whether `after` is `before` without some records of the package of `added`, and with `added` at the end.
bool follows(const Records& after, const Records& before, const RegistryRecord& added) {
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

/// Adding a record to any registry gives one that reads without a warning and lacks only records of that package. Files
/// are slow, so only the first inputs of a process and some of the others also run on a registry on disk, with the same
/// result.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(Fuzz::begin(data, size));
  const Records before = readText(text);
  if (!before.empty())
    Fuzz::accept();
  const RegistryRecord added = nextRecord(before);
  const std::string result = addToText(text, added);
  const std::size_t warnings = Fuzz::loggedLines();
  const Records after = readText(result);
  Fuzz::require(Fuzz::loggedLines() == warnings, "a written registry reads without a warning");
  Fuzz::require(follows(after, before, added), "only superseded records are removed, and the new one is last");
  if (Fuzz::tally().inputs <= 16 || Fuzz::tally().inputs % 128 == 0)
    Fuzz::require(addToFile(text, added) == result, "the registry on disk is the same");
  return 0;
}
