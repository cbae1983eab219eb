// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/preinstall_package.h"

#include "common/error/error.h"
#include "common/rpm/reader.h"
#include "common/signatures/package_cmses.h"
#include "core/registry.h"
#include "driver/decision.h"
#include "driver/log/log_message.h"

#include <span>
#include <string>
#include <utility>

namespace {

using Common::Rpm::VersionComparison;
using Core::KRV::RegistryRecord;

PackageFacts readHeader(const std::filesystem::path& path) {
  const Common::Rpm::Reader reader(path.native());
  PackageFacts facts;
  facts.name = reader.tag(Common::Rpm::Tag::Name);
  // Keep this order: the log names the first missing tag.
  facts.version = reader.tag(Common::Rpm::Tag::Version) + "-";
  facts.version += reader.tag(Common::Rpm::Tag::Release);
  return facts;
}

std::optional<PackageFacts> readFacts(const std::filesystem::path& path) {
  try {
    PackageFacts facts = readHeader(path);
    // Without verification: the service verifies the signatures when it installs.
    facts.developer = Common::developerIdentity(Common::readPackageCmses(path.native(), false));
    return facts;
  } catch (const Common::Error& error) {
    LogMessage(LogLevel::Error) << error.what();
    LogMessage(LogLevel::Error) << "Failed to read RPM package: " << path;
    return std::nullopt;
  }
}

/// Returns false if the registry cannot be read. The cache stays empty then, so the next package tries again.
bool fillCache(RegistryCache& cache) {
  std::vector<RegistryRecord> removals;
  const bool isRead = Core::KRV::Registry().foreachRecord([&](const RegistryRecord& record) {
    // Other records do not change a decision, and a registry may hold a hundred times as many installations.
    if (record.event == RegistryRecord::Event::Remove)
      removals.push_back(record);
  });
  if (isRead)
    cache = std::move(removals);
  else
    LogMessage(LogLevel::Error) << "Failed to read records from krv registry";
  return isRead;
}

std::span<const RegistryRecord> recordsIn(RegistryCache& cache) {
  const bool isFilled = cache || fillCache(cache);
  return isFilled ? std::span<const RegistryRecord>(*cache) : std::span<const RegistryRecord>();
}

void logComparison(VersionComparison comparison, const std::string& version, const std::filesystem::path& path) {
  // The version of the file is logged even if RPM cannot parse the installed version.
  if (comparison == VersionComparison::Unparsable)
    LogMessage(LogLevel::Error) << "Failed to parse rpm package version: " << version;
  else if (comparison == VersionComparison::Unexpected)
    LogMessage(LogLevel::Error) << "Unexpected result of comparing rpm versions";
  else
    return;
  LogMessage(LogLevel::Warning)
      << "Failed to compare the package version with the version of an already installed package: " << path;
}

void logRefusal(Reason reason, const std::filesystem::path& path) {
  switch (reason) {
  case Reason::RemovedByUser:
    LogMessage(LogLevel::Info) << "The package was manually removed by the user: " << path;
    break;
  case Reason::NotNewer:
    LogMessage(LogLevel::Error)
        << "The package version is lower than or equal to the version of an already installed package: " << path;
    break;
  case Reason::DeveloperMismatch:
    LogMessage(LogLevel::Error)
        << "Package developer doesn't match with the developer of an already installed package: " << path;
    break;
  case Reason::NotInstalled:
  case Reason::Update:
    break;
  }
}

PreinstallOutcome skip(const std::filesystem::path& path) {
  LogMessage(LogLevel::Info) << "Skipping package pre-installation: " << path;
  return PreinstallOutcome::Skipped;
}

} // namespace

PreinstallOutcome preinstallPackage(KrvProxy& proxy, const std::filesystem::path& packagePath,
                                    RegistryCache& registryCache) {
  const std::optional<PackageFacts> facts = readFacts(packagePath);
  if (!facts)
    return skip(packagePath);

  const std::optional<InstalledPackage> installed = proxy.getPackage(facts->name);
  const auto records = installed ? std::span<const RegistryRecord>() : recordsIn(registryCache);
  const Verdict verdict = decide(*facts, installed, records);
  if (verdict.comparison)
    logComparison(*verdict.comparison, facts->version, packagePath);
  if (!verdict.isInstallationDue()) {
    logRefusal(verdict.reason, packagePath);
    return skip(packagePath);
  }
  return proxy.install(packagePath.native()) ? PreinstallOutcome::Installed : PreinstallOutcome::InstallFailed;
}
