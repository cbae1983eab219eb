// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/package_events.h"

#include "common/error/error.h"
#include "core/registry.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>

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
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  std::int64_t timestamp = std::chrono::duration_cast<std::chrono::seconds>(now).count();
  forEachRecord([&](const RegistryRecord& older) {
    if (older.packageId != package.name || older.timestamp < timestamp)
      return;
    if (older.timestamp == std::numeric_limits<std::int64_t>::max())
      throw registryError("The package registry has an event with the latest possible time: " + package.name);
    timestamp = older.timestamp + 1;
  });
  return {event, timestamp, package.name, package.developer.keyId, package.developer.previousKeyIds};
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
