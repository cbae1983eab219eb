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
/// in "var/lib/krv/sandbox", which only its owner may enter. One store at a time, for the single thread of its process.
///
/// Installing and removing happen wholly or not at all, whatever fails on the way. When the process ends in between, or
/// the power fails, the next store takes back what was done or finishes it. What has returned is on the disk. Scripts
/// and triggers of packages are never run; owners are not set; set-id bits are dropped, and sticky bits of anything but
/// directories.
class PackageStore {
public:
  /// Opens the store under Common::Filesystem::rootDirectory(), which must be a directory, and cleans up after one that
  /// did not end by itself. If that fails, it is logged, and the next installation or removal tries it again. Throws
  /// Common::Error, Filesystem or Internal, when the root or the database is unusable or another process has the store.
  PackageStore();

  /// The packages that this service has installed, sorted by name; a warning line for each other one.
  std::vector<StoredPackage> list() const;

  /// The package called `name`. Throws Common::Error: PackageNotExist; CorruptedInstalledPackage for one that is in the
  /// database and not from this service.
  StoredPackage get(const std::string& name) const;

  /// Installs the package file that `path`, which is absolute, leads to, links followed, as if `source` had distributed
  /// it, or updates an earlier version. The file is opened once; a copy of it is verified and installed. Throws
  /// Common::Error with the code for what is wrong with the package; FileConflict, also for files of nobody; Filesystem
  /// and Internal when it could not be done.
  void install(const std::string& path, const std::string& source);

  /// Removes a package and all of its files that no other package has. Throws Common::Error: PackageNotExist,
  /// CorruptedInstalledPackage; FileConflict when somebody exchanges one of the files meanwhile; Filesystem and
  /// Internal when it could not be done.
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
