// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/decision.h"

#include <algorithm>

namespace {

using Common::Rpm::VersionComparison;
using Core::KRV::RegistryRecord;

bool wasRemovedByUser(const PackageFacts& package, std::span<const RegistryRecord> records) {
  return std::ranges::any_of(records, [&](const RegistryRecord& record) {
    return record.event == RegistryRecord::Event::Remove && record.packageId == package.name &&
           Common::isOwnOrEarlierKey(package.developer.keyId, record.keyId, record.prevKeyIds);
  });
}

Reason reasonForInstalled(const PackageFacts& package, const InstalledPackage& installed,
                          VersionComparison comparison) {
  if (comparison == VersionComparison::LowerOrEqual)
    return Reason::NotNewer;
  const Common::DeveloperIdentity& developer = package.developer;
  return Common::isOwnOrEarlierKey(installed.developerKeyId, developer.keyId, developer.previousKeyIds)
             ? Reason::Update
             : Reason::DeveloperMismatch;
}

} // namespace

Verdict decide(const PackageFacts& package, const std::optional<InstalledPackage>& installed,
               std::span<const RegistryRecord> records) {
  if (!installed)
    return {wasRemovedByUser(package, records) ? Reason::RemovedByUser : Reason::NotInstalled};
  const VersionComparison comparison = Common::Rpm::compareVersions(package.version, installed->version);
  return {reasonForInstalled(package, *installed, comparison), comparison};
}
