// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/package_event.h"

#include "common/error/error.h"

#include <limits>

namespace Acceptance {

using Core::KRV::RegistryRecord;

RegistryRecord eventRecord(RegistryRecord::Event event, const PackageIdentity& package,
                           std::span<const RegistryRecord> records, std::int64_t now) {
  std::int64_t time = now;
  for (const RegistryRecord& older : records) {
    if (older.packageId != package.name || older.timestamp < time)
      continue;
    if (older.timestamp == std::numeric_limits<std::int64_t>::max())
      throw Common::Error(Common::ErrorCode::Filesystem,
                          "The package registry has an event with the latest possible time: " + package.name);
    time = older.timestamp + 1;
  }
  return {event, time, package.name, package.developer.keyId, package.developer.previousKeyIds};
}

} // namespace Acceptance
