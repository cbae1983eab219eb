// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"
#include "common/rpm/archive.h"
#include "sandbox/store/change_plan.h"
#include "sandbox/store/directory.h"
#include "sandbox/store/opened_package.h"
#include "sandbox/store/package_database.h"

#include <optional>
#include <string>

namespace Sandbox {

/// One operation on the root and the database that happens completely or not at all. It works in the folder
/// "transaction", which only its owner can enter and which is on the root's file system:
///
///   package.rpm    a copy of the package, which nobody else can change
///   registry       the registry before the operation
///   new/N          the files and symlinks to add to the root, by their index in the package; after an exchange, the
///                  replaced file
///   old/N          the files deleted from the root, by the number of the change
///   journal        the plan, written before the first change and removed after the last one
///
/// After a failure or the end of the process, the journal and the places of the files show which changes were made, so
/// that they can be undone or finished. Undoing and finishing can be interrupted and repeated.
///
/// After a power loss any subset of the changes since the last sync may be on the disk. Three rules make the folder
/// sufficient even then:
///
/// 1. The folder is synced before the first change. So a missing or incomplete journal means that nothing was changed,
///    and a complete one has everything that is needed to undo the changes or to repeat them.
/// 2. The registry's record decides. Without it, every change that is on the disk is undone; with it, every change that
///    is not on the disk is repeated.
/// 3. All changes, the database and the record are synced before the journal is removed, after an undo and a redo too.
///    Only the last steps are not synced: removing empty directories of earlier versions, the journal and the folder.
///    File systems keep the order of such changes. The client gets its answer after that.
///
/// One sync covers one file system: the root, the folder, the registry and the database are on the same one. If the
/// database is on another one, SQLite's own syncs protect it.
///
/// Other processes may change those directories of the root that they can write. An entry of the root is replaced or
/// deleted only if it is the one of the plan, so its inode is checked again after it was moved into the folder, where
/// nobody else can exchange it.
///
/// All errors are Common::Error. No symlink is followed.
class Transaction {
public:
  /// Works on `root`. The folder is in `home`, where an earlier process may have left a transaction. The registry is in
  /// `events`.
  Transaction(const Directory& root, const Directory& home, const Directory& events);

  bool isUnderWay() const;

  /// Creates the folder. No transaction may be under way.
  void begin() const;

  /// Copies a package file into the folder and returns the copy, open for reading and writing.
  Common::Posix::FileDescriptor copyPackage(const OpenedPackage& package) const;

  /// Unpacks all files, links and hard links of the package.
  void stage(Common::Rpm::ArchiveReader& package) const;

  /// Writes the journal, then changes the root and the database. After it the caller adds the record to the registry
  /// and calls sync(). Throws FileConflict if the root has changed since the plan was made.
  void carryOut(ChangePlan plan, PackageDatabase& database) const;

  /// Waits until everything is on the disk. Reports write errors of the disk since the last sync, once.
  void sync() const;

  /// The plan in the journal; nothing if the journal is missing or incomplete, so that nothing was changed.
  std::optional<ChangePlan> plan() const;

  /// Undoes all changes, including the record, and ends the transaction. If another process has put a file in the place
  /// of a replaced or deleted one, the old file is lost, with a warning line.
  void undo(PackageDatabase& database) const;

  /// Repeats those changes of a recorded transaction that the disk has lost. If another process has put a file in the
  /// place of a new one, the new file is lost, with a warning line.
  void redo(PackageDatabase& database) const;

  /// Takes the last steps of a recorded transaction, and ends it.
  void finish() const;

  /// Renames the folder, with an error line that names its new place.
  void setAside() const;

private:
  Directory folder() const;
  void makeDirectories(const ChangePlan& plan) const;
  void setModes(const ChangePlan& plan) const;
  void keepRegistry(const Directory& folder) const;
  void putBackRegistry(const Directory& folder) const;
  void discard() const;

  const Directory& m_root;
  const Directory& m_home;
  const Directory& m_events;
  Common::Posix::FileDescriptor m_disk; ///< stays open, because syncfs(2) reports the errors since it was opened
};

} // namespace Sandbox
