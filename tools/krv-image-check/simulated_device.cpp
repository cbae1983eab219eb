// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/simulated_device.h"

#include "acceptance/package_event.h"
#include "common/error/dbus_error.h"
#include "common/error/error.h"
#include "core/registry_content.h"
#include "driver/decision.h"
#include "tools/krv-image-check/owned_files.h"

#include <algorithm>
#include <utility>

namespace ImageCheck {

namespace fs = std::filesystem;

namespace {

using Acceptance::FileChanges;
using Acceptance::PackagedFiles;
using Acceptance::PackageIdentity;
using Acceptance::RootEntry;
using Core::KRV::RegistryRecord;

PackageIdentity identityOf(const Package& package) {
  return {.name = package.name, .version = package.fullVersion, .developer = package.developer->identity};
}

std::string shortNameOf(std::error_code code) {
  return Common::fromCode(static_cast<Common::ErrorCode>(code.value())).shortName;
}

std::string reasonOf(const Verdict& verdict, const std::optional<InstalledPackage>& installed) {
  // The device knows the developer, but nothing here does.
  if (verdict.reason == Reason::DeveloperMismatch && installed->developerKeyId.empty())
    return "DeveloperUnknown";
  return std::string(nameOf(verdict.reason));
}

} // namespace

std::string_view nameOf(Reason reason) {
  switch (reason) {
  case Reason::NotInstalled:
    return "NotInstalled";
  case Reason::Update:
    return "Update";
  case Reason::RemovedByUser:
    return "RemovedByUser";
  case Reason::NotNewer:
    return "NotNewer";
  case Reason::DeveloperMismatch:
    return "DeveloperMismatch";
  }
  return "";
}

SimulatedDevice::SimulatedDevice(Acceptance::Root root) : m_root(std::move(root)) {}

void SimulatedDevice::add(InstalledPackageData package) {
  for (const auto& [path, file] : package.files) {
    if (!file.isGhost && !entryAt(path))
      setEntry(path, RootEntry{.type = file.type});
  }
  own(std::move(package));
}

void SimulatedDevice::add(RegistryRecord record) {
  m_records.push_back(std::move(record));
}

std::vector<Row> SimulatedDevice::boot(const std::vector<Entry>& entries) {
  std::vector<Row> rows;
  for (const Entry& entry : entries)
    rows.push_back(take(entry));
  return rows;
}

Row SimulatedDevice::take(const Entry& entry) {
  const Package* const package = entry.package && entry.package->developer ? &*entry.package : nullptr;
  if (package == nullptr)
    return {.entry = entry.name, .name = "", .action = Action::Unreadable, .reason = ""};

  const auto found = m_installed.find(package->name);
  std::optional<InstalledPackage> installed;
  if (found != m_installed.end()) {
    const PackageIdentity& identity = found->second.identity;
    installed = {.version = Acceptance::reportedVersion(identity.version), .developerKeyId = identity.developer.keyId};
  }
  const PackageFacts facts{
      .name = package->name, .version = package->version, .developer = package->developer->identity};
  const Verdict verdict = decide(facts, installed, m_records);
  Row row{.entry = entry.name, .name = package->name, .action = Action::Skip, .reason = reasonOf(verdict, installed)};
  if (!verdict.isInstallationDue())
    return row;
  try {
    install(*package);
    row.action = installed ? Action::Update : Action::Install;
  } catch (const Common::Error& error) {
    row.action = Action::Refused;
    row.reason = shortNameOf(error.code());
    row.detail = error.what();
  }
  return row;
}

void SimulatedDevice::install(const Package& package) {
  if (package.refusal)
    throw Common::Error(*package.refusal, "");
  const PackageIdentity identity = identityOf(package);
  const auto found = m_installed.find(package.name);
  const bool isInstalled = found != m_installed.end();
  if (isInstalled)
    Acceptance::requireSuccessor(identity, found->second.identity);

  const PackagedFiles files = packagedFiles(package.files);
  const PackagedFiles earlier = isInstalled ? found->second.files : PackagedFiles();
  const FileChanges changes =
      Acceptance::placeFiles(root(), files, {.earlier = earlier, .others = ofOthers(package.name, files, earlier)});
  // A package whose list of files is refused has none here, so that placing them cannot fail before this.
  if (package.contentRefusal)
    throw Common::Error(*package.contentRefusal, "");
  record(isInstalled ? RegistryRecord::Event::Update : RegistryRecord::Event::Install, identity);
  apply(changes, files);
  disown(package.name);
  own({.identity = identity, .files = files});
}

void SimulatedDevice::remove(const std::string& name) {
  const auto found = m_installed.find(name);
  if (found == m_installed.end())
    return;
  const PackagedFiles& earlier = found->second.files;
  const FileChanges changes =
      Acceptance::removeFiles(root(), {.earlier = earlier, .others = ofOthers(name, earlier, {})});
  record(RegistryRecord::Event::Remove, found->second.identity);
  apply(changes, {});
  disown(name);
}

std::vector<InstalledState> SimulatedDevice::state() const {
  std::vector<InstalledState> state;
  for (const auto& [name, package] : m_installed) {
    const PackageIdentity& identity = package.identity;
    state.push_back({.name = name,
                     .version = Acceptance::reportedVersion(identity.version),
                     .keyId = identity.developer.keyId,
                     .previousKeyIds = identity.developer.previousKeyIds});
  }
  return state;
}

void SimulatedDevice::own(InstalledPackageData package) {
  const std::string name = package.identity.name;
  for (const auto& [path, file] : package.files)
    m_owned.emplace(path.native(), Owned{.package = name, .file = file});
  m_installed.insert_or_assign(name, std::move(package));
}

void SimulatedDevice::disown(const std::string& name) {
  const auto found = m_installed.find(name);
  if (found == m_installed.end())
    return;
  for (const auto& [path, file] : found->second.files) {
    auto [first, last] = m_owned.equal_range(path.native());
    while (first != last)
      first = first->second.package == name ? m_owned.erase(first) : std::next(first);
  }
  m_installed.erase(found);
}

void SimulatedDevice::record(RegistryRecord::Event event, const PackageIdentity& package) {
  // Only the order of the times matters.
  RegistryRecord added = Acceptance::eventRecord(event, package, m_records, 0);
  m_records = Core::KRV::prune(std::move(m_records), added);
  m_records.push_back(std::move(added));
}

void SimulatedDevice::apply(const FileChanges& changes, const PackagedFiles& files) {
  for (const fs::path& directory : changes.newDirectories)
    setEntry(directory, RootEntry{.type = fs::file_type::directory});
  for (const Acceptance::Change& change : changes.changes) {
    const bool isRemoved = change.kind == Acceptance::Change::Kind::Delete;
    setEntry(change.path,
             isRemoved ? std::nullopt : std::optional(RootEntry{.type = files.find(change.path)->second.type}));
  }
  for (const fs::path& directory : changes.obsoleteDirectories) {
    if (isEmpty(directory))
      setEntry(directory, std::nullopt);
  }
}

/// The files of all packages but `name` at the paths of two lists. The rules of placement ask for no other path.
PackagedFiles SimulatedDevice::ofOthers(const std::string& name, const PackagedFiles& first,
                                        const PackagedFiles& second) const {
  PackagedFiles others;
  const auto addAt = [&](const fs::path& path) {
    const auto [begin, end] = m_owned.equal_range(path.native());
    for (auto owned = begin; owned != end; ++owned) {
      if (owned->second.package != name)
        others.emplace(path, owned->second.file);
    }
  };
  for (const auto& [path, file] : first)
    addAt(path);
  for (const auto& [path, file] : second) {
    if (!first.contains(path))
      addAt(path);
  }
  return others;
}

std::optional<RootEntry> SimulatedDevice::entryAt(const fs::path& path) const {
  const auto changed = m_entries.find(path.native());
  if (changed != m_entries.end())
    return changed->second;
  return m_root ? m_root(path) : std::nullopt;
}

void SimulatedDevice::setEntry(const fs::path& path, const std::optional<RootEntry>& entry) {
  std::optional<RootEntry>& current = m_entries[path.native()];
  if (current.has_value() != entry.has_value())
    m_children[path.parent_path().native()] += entry ? 1 : -1;
  current = entry;
}

/// A directory of `m_root` stays, because its entries are not known.
bool SimulatedDevice::isEmpty(const fs::path& directory) const {
  if (m_root && m_root(directory))
    return false;
  const auto children = m_children.find(directory.native());
  return children == m_children.end() || children->second == 0;
}

Acceptance::Root SimulatedDevice::root() const {
  return [this](const fs::path& path) { return entryAt(path); };
}

} // namespace ImageCheck
