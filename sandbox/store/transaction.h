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
/// Whoever finds the folder, after a failure or after the end of the process, can tell from the journal and from what
/// lies where what has been done, and can undo it or finish it, and be interrupted in that as well. All errors are
/// Common::Error; nothing is done through a symbolic link.
///
/// After a power loss the disk has any part of what was changed since the last sync. Three rules make the folder enough
/// even then:
///
/// 1. The folder is synced before the first change. So a journal that is missing or not whole means that nothing has
///    been changed, and one that is whole has everything that it takes to undo all changes and to do them again.
/// 2. The registry's record decides. Without it every change is undone, as far as it is on the disk; with it every
///    change that is not on the disk is done again. Both can be cut off and repeated.
/// 3. All changes, the database and the record are synced before the journal goes, and so are an undo and a redo. What
///    is not synced is only the end itself: empty directories of earlier versions go, then the journal, then the
///    folder. File systems with a journal keep that order. The answer to the client comes after that.
///
/// The root, the folder, the registry and the database are on one file system, of which a sync writes everything. If
/// the database is on another one, SQLite's own syncs have to do.
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
  Common::Posix::FileDescriptor adopt(const OpenedPackage& package) const;

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
