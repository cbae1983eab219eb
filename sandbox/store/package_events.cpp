// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/package_events.h"

#include "acceptance/package_event.h"
#include "common/error/error.h"
#include "core/registry.h"

#include <chrono>
#include <functional>
#include <vector>

namespace Sandbox {

namespace {

using Core::KRV::RegistryRecord;

Common::Error registryError(const std::string& message) {
  return {Common::ErrorCode::Filesystem, message};
}

void forEachRecord(const std::function<void(const RegistryRecord&)>& visitor) {
  if (!Core::KRV::Registry().foreachRecord(visitor))
    throw registryError("Couldn't read the package registry");
}

} // namespace

RegistryRecord newRecord(RegistryRecord::Event event, const StoredPackage& package) {
  std::vector<RegistryRecord> older;
  forEachRecord([&](const RegistryRecord& record) {
    if (record.packageId == package.name)
      older.push_back(record);
  });
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return Acceptance::eventRecord(event, package, older, std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

bool isRecorded(const std::string& line) {
  bool found = false;
  forEachRecord([&](const RegistryRecord& record) { found = found || toString(record) == line; });
  return found;
}

void record(const RegistryRecord& event) {
  if (!Core::KRV::Registry().writeRecord(event))
    throw registryError("Couldn't write to the package registry: " + event.packageId);
}

} // namespace Sandbox
