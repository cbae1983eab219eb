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

/// One operation on the root and the database that happens wholly or not at all, in the folder "transaction", which
/// only its owner may enter and which is on the root's file system:
///
///   package.rpm    the package itself, out of everybody's reach
///   registry       the registry before
///   new/N          the files and links to be put into the root, by their index in the package; after the exchange the
///                  file that was replaced
///   old/N          what was deleted from the root, by the number of the change
///   journal        the plan. It comes before the first change and goes after the last one
///
/// After a failure or the end of the process, the journal and the places of the files show which changes were made, so
/// they can be undone or finished. That can be interrupted too. All errors are Common::Error; no symlink is followed.
///
/// After a power loss any subset of the changes since the last sync may be on the disk. Three rules make the folder
/// sufficient even then:
///
/// 1. The folder is synced before the first change. So a journal that is missing or incomplete means that nothing was
///    changed, and a complete one has all that is needed to undo the changes or to make them again.
/// 2. The registry's record decides. Without it, every change that is on the disk is undone; with it, every change that
///    is not on the disk is made again. Both can be interrupted and repeated.
/// 3. All changes, the database and the record are synced before the journal is removed; so are an undo and a redo.
/// Only
///    the last steps are not synced: empty directories of earlier versions are removed, then the journal, then the
///    folder. File systems keep the order of such changes. The client gets its answer after that.
///
/// One sync covers one file system: the root, the folder, the registry and the database are on the same one. If the
/// database is on another one, SQLite's own syncs protect it.
///
/// Other processes may change directories of the root meanwhile, if these are open to them. An entry of the root is
/// replaced or deleted only if it is the one of the plan, so it is looked at again after it has been moved into the
/// folder, where nobody else can exchange it.
class Transaction {
public:
  /// Works on `root`. The folder is in `home`, and a transaction may have been left there. The registry is in `events`.
  Transaction(const Directory& root, const Directory& home, const Directory& events);

  bool isUnderWay() const;

  /// Makes the folder. None may be under way.
  void begin() const;

  /// Takes a copy of a package file, which nobody else can open.
  Common::Posix::FileDescriptor copyPackage(const OpenedPackage& package) const;

  /// Unpacks all files, links and hard links of the package.
  void stage(Common::Rpm::ArchiveReader& package) const;

  /// Writes the journal, then changes the root and the database. To record it is the caller's, and to sync() then.
  /// Throws FileConflict when the root is no longer as the plan has it.
  void carryOut(ChangePlan plan, PackageDatabase& database) const;

  /// Waits until everything is on the disk. An error of the disk since the last sync is an error here, once.
  void sync() const;

  /// The plan of a transaction that may have changed something.
  std::optional<ChangePlan> plan() const;

  /// Takes back what has been done, the record as well, and ends the transaction. A file that was replaced or deleted
  /// is lost, with a warning line, when somebody else has taken its place meanwhile.
  void undo(PackageDatabase& database) const;

  /// Does again what the disk has lost of a recorded transaction. A file is lost, with a warning line, when somebody
  /// else has taken its place meanwhile.
  void redo(PackageDatabase& database) const;

  /// Does what comes after the decision that the transaction has happened, and ends it.
  void finish() const;

  /// Puts the folder out of the way, with an error line that says where it is.
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
  Common::Posix::FileDescriptor m_disk; ///< open all the time: it tells of the errors since it was opened
};

} // namespace Sandbox
