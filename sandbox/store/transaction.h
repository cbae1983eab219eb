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
///   new/N          the files and links to be put into the root, by their index in the package; after the exchange the
///                  file that was replaced
///   old/N          what was deleted from the root, by the number of the change
///   header         the database entry of the version before, if there was one
///   journal        the plan. It comes before the first change and goes after the last one
///
/// Whoever finds the folder, after a failure or after the end of the process, can tell from the journal and from what
/// lies where what has been done, and can undo it or finish it, and be interrupted in that as well. All errors are
/// Common::Error; nothing is done through a symbolic link.
///
/// Other processes may change directories of the root meanwhile, if these are open to them. An entry of the root is
/// replaced or deleted only if it is the one of the plan, so it is looked at again after it has been moved into the
/// folder, where nobody else can exchange it.
class Transaction {
public:
  /// Works on `root`. The folder is in `home`, and a transaction may have been left there.
  Transaction(const Directory& root, const Directory& home) : m_root(root), m_home(home) {}

  bool isUnderWay() const;

  /// Makes the folder. None may be under way.
  void begin() const;

  /// Takes a copy of a package file, which nobody else can open.
  Common::Posix::FileDescriptor copyPackage(const OpenedPackage& package) const;

  /// Unpacks all files, links and hard links of the package.
  void stage(Common::Rpm::ArchiveReader& package) const;

  /// Writes the journal, then changes the root and the database, in which `entry` takes the place of `earlier`. The
  /// registry is the caller's. Throws FileConflict when the root is no longer as the plan has it.
  void carryOut(ChangePlan plan, PackageDatabase& database, const std::optional<std::string>& earlier,
                const std::optional<std::string>& entry) const;

  /// The plan of a transaction that may have changed something.
  std::optional<ChangePlan> plan() const;

  /// Takes back what has been done, and ends the transaction. A file that was replaced or deleted is lost, with a
  /// warning line, when somebody else has taken its place meanwhile.
  void undo(PackageDatabase& database) const;

  /// Does what comes after the decision that the transaction has happened, and ends it.
  void finish() const;

private:
  Directory folder() const;
  void applyTo(const Change& change, const Directory& folder) const;
  void discard() const;

  const Directory& m_root;
  const Directory& m_home;
};

} // namespace Sandbox
