// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/preinstall_package.h"

#include "common/error/error.h"
#include "core/registry.h"
#include "driver/decision.h"
#include "driver/log/messages.h"
#include "driver/package_facts.h"

#include <span>
#include <string>
#include <utility>

namespace {

using Common::Rpm::VersionComparison;
using Core::KRV::RegistryRecord;

std::optional<PackageFacts> readFacts(const std::filesystem::path& path) {
  try {
    return readPackageFacts(path);
  } catch (const Common::Error& error) {
    logLine<Message::ErrorText>(error.what());
    logLine<Message::Unreadable>(path);
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
    logLine<Message::RecordsNotRead>();
  return isRead;
}

std::span<const RegistryRecord> recordsIn(RegistryCache& cache) {
  const bool isFilled = cache || fillCache(cache);
  return isFilled ? std::span<const RegistryRecord>(*cache) : std::span<const RegistryRecord>();
}

void logComparison(VersionComparison comparison, const std::string& version, const std::filesystem::path& path) {
  // The version of the file is logged even if RPM cannot parse the installed version.
  if (comparison == VersionComparison::Unparsable)
    logLine<Message::VersionNotParsed>(version);
  else if (comparison == VersionComparison::Unexpected)
    logLine<Message::UnexpectedComparison>();
  else
    return;
  logLine<Message::VersionsNotCompared>(path);
}

void logRefusal(Reason reason, const std::filesystem::path& path) {
  switch (reason) {
  case Reason::RemovedByUser:
    logLine<Message::RemovedByUser>(path);
    break;
  case Reason::NotNewer:
    logLine<Message::NotNewer>(path);
    break;
  case Reason::DeveloperMismatch:
    logLine<Message::DeveloperMismatch>(path);
    break;
  case Reason::NotInstalled:
  case Reason::Update:
    break;
  }
}

PreinstallOutcome skip(const std::filesystem::path& path) {
  logLine<Message::Skipping>(path);
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
