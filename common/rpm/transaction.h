// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"
#include "common/rpm/reader.h"

#include <rpm/rpmts.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Common::Rpm {

/// A locked transaction on the RPM database under the system root; the lock goes when the last copy does. One at a
/// time per process. For the single thread of the program only.
class RpmTransaction {
public:
  /// Locks the database. `flags` are RPMTXN_READ or RPMTXN_WRITE of rpm/rpmts.h. RPMTXN_WRITE takes an exclusive lock
  /// and holds back signals; RPMTXN_READ takes the same lock with librpm 4.18, and one that readers share with 4.20. If
  /// another process has the lock and standard input is a terminal, librpm waits for it. Throws Common::Error: Internal
  /// "Couldn't begin rpm transaction" when the lock cannot be had.
  explicit RpmTransaction(rpmtxnFlags flags);

  /// Adds RPMTRANS_FLAG_* bits of rpm/rpmts.h to those that are set.
  void addFlags(rpmtransFlags flags);

  /// Makes run() print a label and hash marks per package on standard output, as librpm's own tool does.
  void showProgress();

  /// Queues the erasure of an installed package, which `reader` has from forEachInstalled(). Throws Common::Error:
  /// Internal "Couldn't add erase element to the RPM transaction", also for a package that is not from the database.
  void erase(const Reader& reader);

  /// Does what is queued; dependencies are not checked. Returns normally also when librpm found problems and did
  /// nothing. Throws Common::Error: Internal "Couldn't run rpm transaction" when it failed, for example in a
  /// package's script; other packages may have been erased then.
  void run();

  /// All installed packages. A database that cannot be opened has none; librpm says so on standard error.
  PackageIteratorHandle installedPackages() const;

  /// Calls `visitor` for each package of `packages`. The reader is good until the visitor returns, and so is a copy of
  /// it. An empty visitor raises std::bad_function_call; what a visitor throws goes on to the caller.
  static void forEachInstalled(const PackageIteratorHandle& packages,
                               const std::function<void(const Reader&)>& visitor);

  /// The names of the package's dependencies of one kind, for example RPMTAG_REQUIRENAME, in header order and with
  /// duplicates, without their versions. Of a rich dependency it is the first word. A tag of another kind has none,
  /// and neither has a header whose values do not fit each other.
  static std::vector<std::string> dependencyNames(const Reader& reader, std::int32_t tag);

  TransactionLockHandle lock() const { return m_lock; }

private:
  TransactionSetHandle m_set;
  TransactionLockHandle m_lock; // released before the set it was begun on
};

} // namespace Common::Rpm
