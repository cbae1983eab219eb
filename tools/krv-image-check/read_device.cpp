// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/read_device.h"

#include "acceptance/file_list.h"
#include "common/error/error.h"
#include "common/rpm/configuration.h"
#include "common/rpm/file_entry.h"
#include "common/rpm/transaction.h"
#include "core/registry_content.h"
#include "tools/krv-image-check/database.h"
#include "tools/krv-image-check/owned_files.h"
#include "tools/krv-image-check/root_entry.h"
#include "tools/krv-image-check/wire.h"
#include "tools/krv-image-check/workers.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ImageCheck {

namespace {

using Common::Rpm::Reader;
using Core::KRV::RegistryRecord;

constexpr std::size_t longestRegistry = 1 << 30;

Package describe(const Reader& header) {
  Package package{.entry = "",
                  .name = header.tagOr(Common::Rpm::Tag::Name, ""),
                  .version = "",
                  .architecture = "",
                  .sha256 = "",
                  .developer = {},
                  .refusal = {},
                  .files = {},
                  .fullVersion = header.tagOr(Common::Rpm::Tag::FullVersion, "")};
  for (const Acceptance::PackagedFile& file : Acceptance::fileList(header)) {
    const std::filesystem::path path = Common::Rpm::nameBelowRoot(file.name);
    if (!path.empty())
      package.files.push_back(ownedFile(path, file));
  }
  return package;
}

/// Called in a worker process.
std::string packDevice(const std::filesystem::path& database, const std::string& registry,
                       const std::function<bool(const std::string&)>& isOffered) {
  DeviceContent device;
  std::istringstream lines(registry);
  Core::KRV::readLines(lines, [&](const RegistryRecord& record) { device.records.push_back(record); });
  Common::Rpm::setDatabaseFolder(database);
  const int errors = Common::Rpm::reportedErrors();
  const Common::Rpm::RpmTransaction transaction(RPMTXN_READ);
  Common::Rpm::RpmTransaction::forEachInstalled(transaction.installedPackages(), [&](const Reader& header) {
    const std::string name = header.tagOr(Common::Rpm::Tag::Name, "");
    const bool isRecorded = std::ranges::find(device.records, name, &RegistryRecord::packageId) != device.records.end();
    if (isRecorded || isOffered(name))
      device.packages.push_back(describe(header));
  });
  if (Common::Rpm::reportedErrors() != errors)
    throw std::runtime_error("the RPM database is damaged");
  return pack(device);
}

std::string readRegistry(const ImageTree& tree) {
  const auto file = tree.openFile("var/lib/krv/registry");
  if (!file && errno == ENOENT)
    return "";
  const std::optional<std::string> content = file ? contentOf(file, longestRegistry) : std::nullopt;
  if (!content)
    throw std::system_error(errno, std::generic_category(), "the registry of the device cannot be read");
  return *content;
}

Common::DeveloperIdentity developerOf(const std::string& name, const std::vector<RegistryRecord>& records) {
  const auto newest = std::ranges::find_if(records.rbegin(), records.rend(), [&](const RegistryRecord& record) {
    return record.packageId == name && record.event != RegistryRecord::Event::Remove;
  });
  if (newest == records.rend())
    return {};
  return {.keyId = newest->keyId, .subgroup = "", .previousKeyIds = newest->prevKeyIds};
}

} // namespace

SimulatedDevice readDevice(const std::string& path, const std::filesystem::path& copy,
                           const std::function<bool(const std::string&)>& isOffered) {
  const auto tree = std::make_shared<const ImageTree>(path);
  if (const std::string reason = copyDatabase(*tree, copy); !reason.empty())
    throw std::runtime_error(path + ": " + reason);
  const std::string registry = readRegistry(*tree);
  const auto work = [&](std::size_t) { return packDevice(copy, registry, isOffered); };
  const std::optional<std::string> answer = doInWorkers({.count = 1, .jobs = 1, .work = work}).front();
  if (!answer)
    throw std::runtime_error(path + ": the RPM database cannot be read");
  const DeviceContent content = unpackDevice(*answer);
  SimulatedDevice device([tree](const std::filesystem::path& place) { return rootEntry(*tree, place); });
  for (const Package& package : content.packages)
    device.add({.identity = {.name = package.name,
                             .version = package.fullVersion,
                             .developer = developerOf(package.name, content.records)},
                .files = packagedFiles(package.files)});
  for (const RegistryRecord& record : content.records)
    device.add(record);
  return device;
}

} // namespace ImageCheck
