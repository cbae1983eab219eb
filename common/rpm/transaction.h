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

/// A locked transaction on the RPM database under the system root. The last copy releases the lock. Only one at a time
/// per process. Only for the single thread of the program.
class RpmTransaction {
public:
  /// Locks the database. `flags` are RPMTXN_READ or RPMTXN_WRITE of rpm/rpmts.h. RPMTXN_WRITE takes an exclusive lock
  /// and blocks signals. RPMTXN_READ takes the same lock with librpm 4.18, and a shared lock with 4.20. If another
  /// process has the lock and standard input is a terminal, librpm waits for the lock. Throws Common::Error: Internal
  /// "Couldn't begin rpm transaction" if it does not get the lock.
  explicit RpmTransaction(rpmtxnFlags flags);

  /// Adds RPMTRANS_FLAG_* bits of rpm/rpmts.h to the flags that are set.
  void addFlags(rpmtransFlags flags);

  /// Makes run() print a label and hash marks per package on standard output, as librpm's own tool does.
  void showProgress();

  /// Queues the removal of an installed package; `reader` must come from forEachInstalled(). Throws Common::Error:
  /// Internal "Couldn't add erase element to the RPM transaction", also if the package is not from the database.
  void erase(const Reader& reader);

  /// Removes the queued packages without checking dependencies. Returns normally also if librpm found problems and did
  /// nothing. Throws Common::Error: Internal "Couldn't run rpm transaction" if it failed, for example in a package's
  /// script; other packages may have been removed by then.
  void run();

  /// An iterator over all installed packages. If the database cannot be opened, librpm reports it on standard error and
  /// the iterator has no packages.
  PackageIteratorHandle installedPackages() const;

  /// Calls `visitor` for each package of `packages`. The reader and its copies are valid until the visitor returns.
  /// Throws std::bad_function_call if `visitor` is empty; exceptions of the visitor reach the caller.
  static void forEachInstalled(const PackageIteratorHandle& packages,
                               const std::function<void(const Reader&)>& visitor);

  /// The names of the package's dependencies of one kind, for example RPMTAG_REQUIRENAME, in header order, with
  /// duplicates, without versions. For a rich dependency it is the first word. Empty if `tag` is not a kind of
  /// dependency, or if the header's values do not fit together.
  static std::vector<std::string> dependencyNames(const Reader& reader, std::int32_t tag);

  TransactionLockHandle lock() const { return m_lock; }

private:
  TransactionSetHandle m_set;
  TransactionLockHandle m_lock; // released before the set that it belongs to
};

} // namespace Common::Rpm
