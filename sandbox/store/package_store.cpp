// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/package_store.h"

#include "acceptance/package_content.h"
#include "acceptance/package_header.h"
#include "acceptance/package_rules.h"
#include "common/error/error.h"
#include "common/filesystem/entry.h"
#include "common/filesystem/root.h"
#include "common/signatures/package_cmses.h"
#include "driver/log/log_message.h"
#include "sandbox/store/header_blob.h"
#include "sandbox/store/installed_files.h"
#include "sandbox/store/opened_package.h"
#include "sandbox/store/package_events.h"
#include "sandbox/store/planning.h"

#include <algorithm>
#include <utility>

namespace Sandbox {

namespace fs = std::filesystem;

namespace {

using Acceptance::PackagedFiles;
using Common::Error;
using Common::ErrorCode;
using Common::Rpm::ArchiveReader;
using Common::Rpm::Reader;
using Core::KRV::RegistryRecord;

fs::path usableRoot() {
  const fs::path root = Common::Filesystem::rootDirectory();
  if (!Common::Filesystem::isDirectory(root))
    throw Error(ErrorCode::Filesystem, "The root is not a directory: " + root.string());
  return fs::absolute(root);
}

std::uint64_t availableSpace(const Directory& root) {
  std::error_code reason;
  const std::uint64_t available = fs::space(root.path(), reason).available;
  if (reason)
    throw Error(ErrorCode::Filesystem, "Couldn't ask for free space: " + root.path().string());
  return available;
}

/// Called before the package is copied: a sparse file can have any size.
void requireSpace(const OpenedPackage& package, const Directory& root) {
  if (package.size() > availableSpace(root))
    throw Error(ErrorCode::Filesystem, "There is no space for a copy of the package: " + root.path().string());
}

/// Called before the package is unpacked: a header may claim any size.
void requireSpace(const PackagedFiles& files, const Directory& root) {
  std::uint64_t available = availableSpace(root);
  for (const auto& [path, file] : files) {
    if (file.type != fs::file_type::regular || file.isGhost || file.isFurtherName)
      continue;
    if (file.size > available)
      throw Error(ErrorCode::Filesystem, "There is no space for the files of the package: " + root.path().string());
    available -= file.size;
  }
}

StoredPackage describe(const Reader& package, const std::string& source, const Common::DeveloperIdentity& developer) {
  return {{.name = package.tag(Common::Rpm::Tag::Name),
           .version = package.tag(Common::Rpm::Tag::FullVersion),
           .developer = developer},
          source};
}

std::string nameOf(const Reader& entry) {
  return entry.tagOr(Common::Rpm::Tag::Name, "");
}

/// A package of the database, with its entry there.
struct Installed {
  StoredPackage package;
  Reader entry;
};

std::optional<Installed> find(const std::vector<Reader>& entries, const std::string& name) {
  std::optional<Installed> found;
  for (const Reader& entry : entries) {
    if (nameOf(entry) != name)
      continue;
    const std::optional<StoredPackage> package = storedPackage(entry);
    if (!package || found)
      throw Error(ErrorCode::CorruptedInstalledPackage, "The package was not installed by this service: " + name);
    found = {.package = *package, .entry = entry};
  }
  return found;
}

Installed require(const std::vector<Reader>& entries, const std::string& name) {
  if (std::optional<Installed> found = find(entries, name))
    return *std::move(found);
  throw Error(ErrorCode::PackageNotExist, "The package is not installed: " + name);
}

PackagedFiles filesOfOthers(std::vector<Reader> entries, const std::string& name) {
  std::erase_if(entries, [&](const Reader& entry) { return nameOf(entry) == name; });
  return filesOf(entries);
}

} // namespace

PackageStore::PackageStore()
    : m_root(usableRoot()), m_home(m_root.openPrivate("var/lib/krv/sandbox")), m_events(m_root.open("var/lib/krv")),
      m_lock(m_home), m_database(m_root.path() / "var/lib/rpm"), m_transaction(m_root, m_home, m_events) {
  m_database.packages(); // throws if the database cannot be read
  afterwards([this] { recover(); });
}

std::vector<StoredPackage> PackageStore::list() const {
  std::vector<StoredPackage> packages;
  for (const Reader& entry : m_database.packages()) {
    if (std::optional<StoredPackage> package = storedPackage(entry))
      packages.push_back(std::move(*package));
    else
      LogMessage(LogLevel::Warning) << "The package was not installed by this service: " << nameOf(entry);
  }
  std::ranges::sort(packages, {}, &StoredPackage::name);
  return packages;
}

StoredPackage PackageStore::get(const std::string& name) const {
  return require(m_database.packages(), name).package;
}

void PackageStore::install(const std::string& path, const std::string& source) {
  std::string outcome;
  bool hasScripts = false;
  inTransaction([&] {
    // Refuses most bad packages before they are copied.
    OpenedPackage original(path);
    original.requirePackage();
    requireSpace(original, m_root);
    // From here on only the copy is used, so that nobody can change a verified package.
    const Common::Posix::FileDescriptor file = m_transaction.copyPackage(original);
    const std::string copy = pathOf(file);
    ArchiveReader archive = ArchiveReader::openForExtraction(copy);
    const auto developer = Common::developerIdentity(Common::readPackageCmses(copy, true));
    outcome = installVerified(archive, describe(archive, source, developer));
    hasScripts = Acceptance::hasScripts(archive);
  });
  LogMessage(LogLevel::Info) << outcome;
  if (hasScripts)
    LogMessage(LogLevel::Warning) << "The scripts of the package are not run: " << path;
}

/// Returns the text of the log line.
std::string PackageStore::installVerified(ArchiveReader& archive, const StoredPackage& package) {
  Acceptance::requireInstallable(archive);
  const std::vector<Reader> entries = m_database.packages();
  const std::optional<Installed> installed = find(entries, package.name);
  if (installed)
    Acceptance::requireSuccessor(package, installed->package);

  const PackagedFiles files = Acceptance::checkedFiles(archive);
  const PackagedFiles earlier = installed ? filesOf({installed->entry}) : PackagedFiles{};
  const PackagedFiles others = filesOfOthers(entries, package.name);
  ChangePlan plan = planInstallation(m_root, files, {.earlier = earlier, .others = others});
  requireSpace(files, m_root);
  m_transaction.stage(archive);

  const RegistryRecord event =
      newRecord(installed ? RegistryRecord::Event::Update : RegistryRecord::Event::Install, package);
  if (installed)
    plan.entryBefore = exportHeader(installed->entry);
  plan.entryAfter = exportHeader(withInstallationTags(archive, package, event.timestamp));
  commit(std::move(plan), event);
  return (installed ? "Updated: " : "Installed: ") + package.name + " " + package.version;
}

void PackageStore::remove(const std::string& name) {
  std::string version;
  inTransaction([&] {
    const std::vector<Reader> entries = m_database.packages();
    const Installed installed = require(entries, name);
    const PackagedFiles earlier = filesOf({installed.entry});
    const PackagedFiles others = filesOfOthers(entries, name);
    ChangePlan plan = planRemoval(m_root, {.earlier = earlier, .others = others});
    plan.entryBefore = exportHeader(installed.entry);
    commit(std::move(plan), newRecord(RegistryRecord::Event::Remove, installed.package));
    version = installed.package.version;
  });
  LogMessage(LogLevel::Info) << "Removed: " << name << " " << version;
}

void PackageStore::commit(ChangePlan plan, const RegistryRecord& event) {
  plan.package = event.packageId;
  plan.record = toString(event);
  m_transaction.carryOut(std::move(plan), m_database);
  record(event);
  m_transaction.sync();
}

void PackageStore::inTransaction(const std::function<void()>& work) {
  recover();
  try {
    m_transaction.begin();
    work();
  } catch (const std::exception& exception) {
    afterwards([&] { m_transaction.undo(m_database); });
    if (dynamic_cast<const Error*>(&exception) != nullptr)
      throw;
    throw Error(ErrorCode::Internal, exception.what());
  }
  afterwards([&] { m_transaction.finish(); });
}

/// Takes the last steps of an operation. If they fail, recover() takes them the next time.
void PackageStore::afterwards(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::exception& exception) {
    LogMessage(LogLevel::Error) << exception.what();
    LogMessage(LogLevel::Warning) << "The package store will clean up later";
  }
}

void PackageStore::recover() {
  if (!m_transaction.isUnderWay())
    return;
  std::optional<ChangePlan> plan;
  try {
    plan = m_transaction.plan();
  } catch (const Error& error) {
    LogMessage(LogLevel::Error) << error.what();
    m_transaction.setAside();
    return;
  }
  if (plan && isRecorded(plan->record)) {
    m_transaction.redo(m_database);
    m_transaction.finish();
    LogMessage(LogLevel::Info) << "Finished an interrupted transaction: " << plan->package;
    return;
  }
  m_transaction.undo(m_database);
  LogMessage(LogLevel::Info) << "Took back an interrupted transaction" << (plan ? ": " + plan->package : "");
}

} // namespace Sandbox
