// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"

#include <functional>

namespace Core::KRV {

/// The package event registry, "var/lib/krv/registry" under the root, shared with the other processes of the
/// package-manager family. Every operation looks up the root again, then blocks until it has the exclusive lock on
/// "registry.lock" beside the registry, and holds the lock to its end. Only for one thread of a process. The lock must
/// be a regular file and not a symlink; the registry must be a regular file, symlinks followed. Any other type is
/// refused without reading it.
///
/// Failures are logged, and the operation returns false. Only if the directory of the lock file cannot be created, it
/// throws Common::Error, Filesystem.
class Registry {
public:
  /// Calls `callback` with each valid record in file order, while the lock is held; bad lines are logged and skipped.
  /// Returns false if locking or reading fails. A missing registry is empty. A registry of size 0 is empty and is not
  /// read. Exceptions of the callback reach the caller. The callback must not use the registry: that would release the
  /// lock.
  [[nodiscard]] bool foreachRecord(const std::function<void(const RegistryRecord&)>& callback) const;

  /// Adds `record` and drops the records that it replaces: the earlier records of its package on its key chain, but an
  /// update keeps the Install records. Writes "registry.next" beside the registry and renames it; the file may stay
  /// after a failure. Returns true if the registry was replaced; otherwise the old registry is unchanged. If the
  /// registry's stat fails, writing fails; reading treats the registry as empty. Throws std::out_of_range, before
  /// anything is created or written, if the event of `record` is unknown.
  [[nodiscard]] bool writeRecord(const RegistryRecord& record) const;
};

} // namespace Core::KRV
