// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/archive.h"
#include "core/registry_record.h"
#include "sandbox/store/directory.h"
#include "sandbox/store/package_database.h"
#include "sandbox/store/store_lock.h"
#include "sandbox/store/stored_package.h"
#include "sandbox/store/transaction.h"

#include <functional>
#include <string>
#include <vector>

namespace Sandbox {

/// The installed packages of the root: their files, the RPM database "var/lib/rpm" and the registry. Its own state is
/// in "var/lib/krv/sandbox", which only its owner can enter. One store at a time, for the single thread of its process.
///
/// Installing and removing happen completely or not at all. If the process is killed or the power fails in between, the
/// next store undoes or finishes the operation. When a call returns, its changes are on the disk. Scripts and triggers
/// of packages never run. Owners are not set; set-id bits are dropped, and sticky bits of files.
class PackageStore {
public:
  /// Opens the store under Common::Filesystem::rootDirectory(), which must be a directory, and recovers an interrupted
  /// operation. If recovery fails, it is logged, and the next installation or removal tries again. Throws
  /// Common::Error, Filesystem or Internal, if the root or the database is unusable or another process has the store.
  PackageStore();

  /// The packages that this service has installed, sorted by name; a warning line for each other one.
  std::vector<StoredPackage> list() const;

  /// The package called `name`. Throws Common::Error: PackageNotExist; CorruptedInstalledPackage if another program has
  /// added it to the database.
  StoredPackage get(const std::string& name) const;

  /// Installs the package file at the absolute `path`, symlinks followed, with `source` as its distributor, or updates
  /// an earlier version. The file is opened once; a copy of it is verified and installed. Throws Common::Error with the
  /// code of the rule that the package breaks; FileConflict, also for files that no package owns; Filesystem and
  /// Internal for other failures.
  void install(const std::string& path, const std::string& source);

  /// Removes a package and its files, except those that another package owns too. Throws Common::Error:
  /// PackageNotExist, CorruptedInstalledPackage; FileConflict if another process replaces one of the files meanwhile;
  /// Filesystem and Internal for other failures.
  void remove(const std::string& name);

private:
  std::string installVerified(Common::Rpm::ArchiveReader& archive, const StoredPackage& package);
  void commit(ChangePlan plan, const Core::KRV::RegistryRecord& event);
  void inTransaction(const std::function<void()>& work);
  static void afterwards(const std::function<void()>& work);
  void recover();

  Directory m_root;
  Directory m_home;
  Directory m_events;
  StoreLock m_lock;
  PackageDatabase m_database;
  Transaction m_transaction;
};

} // namespace Sandbox
