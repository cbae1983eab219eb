// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/archive.h"
#include "sandbox/change_plan.h"
#include "sandbox/package_database.h"

#include <filesystem>
#include <optional>
#include <string>

namespace Sandbox {

/// One operation on the root and the database that happens wholly or not at all, in a folder of the root's file system:
///
///   package.rpm    the package itself, out of everybody's reach
///   new/N          the files and links to be put into the root, by their index in the package
///   old/N          what was in the root before, by the number of the change
///   header         the database entry of the version before, if there was one
///   journal        the plan. It comes before the first change and goes after the last one
///
/// Whoever finds the folder, after a failure or after the end of the process, can tell from the journal and from what
/// lies where what has been done, and can undo it or finish it, and be interrupted in that as well. All errors are
/// Common::Error; nothing is done through a symbolic link.
class Transaction {
public:
  /// A transaction may have been left in `folder`.
  Transaction(std::filesystem::path root, std::filesystem::path folder);

  bool isUnderWay() const;

  /// Makes the folder. None may be under way.
  void begin() const;

  /// Takes a copy of a package file, and returns its path.
  std::filesystem::path adopt(const std::filesystem::path& package) const;

  /// Unpacks all files, links and hard links of the package.
  void stage(Common::Rpm::ArchiveReader& package) const;

  /// Writes the journal, then changes the root and the database, in which `entry` takes the place of `earlier`. The
  /// registry is the caller's.
  void carryOut(const ChangePlan& plan, PackageDatabase& database, const std::optional<std::string>& earlier,
                const std::optional<std::string>& entry) const;

  /// The plan of a transaction that may have changed something.
  std::optional<ChangePlan> plan() const;

  /// Takes back what has been done, and ends the transaction.
  void undo(PackageDatabase& database) const;

  /// Does what comes after the decision that the transaction has happened, and ends it.
  void finish() const;

private:
  std::filesystem::path newFile(std::size_t number) const { return m_folder / "new" / std::to_string(number); }
  std::filesystem::path oldFile(std::size_t number) const { return m_folder / "old" / std::to_string(number); }
  std::filesystem::path journal() const { return m_folder / "journal"; }
  std::filesystem::path header() const { return m_folder / "header"; }

  void apply(const Change& change) const;
  void undo(const Change& change) const;
  void discard() const;

  std::filesystem::path m_root;
  std::filesystem::path m_folder;
};

} // namespace Sandbox
