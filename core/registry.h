// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"

#include <functional>

namespace Core::KRV {

/// The package event registry, "var/lib/krv/registry" under the root, shared with the other processes of the
/// package-manager family. Every operation finds the root afresh, takes the exclusive lock on "registry.lock" beside
/// it, waits for it as long as needed, and holds it to its end. For one thread of a process. The lock must be a regular
/// file and no symlink; the registry must be a regular file, links followed. Anything else is refused unopened or
/// unread.
///
/// Failures are logged and answered with false, save that of making the directory of the lock file: Common::Error,
/// Filesystem.
class Registry {
public:
  /// Calls `callback` with each valid record in file order, while the lock is held; bad lines are logged and skipped.
  /// False when the lock could not be had or the file not be read. A missing registry is an empty one. What the
  /// callback throws passes on. A registry of size 0 is empty and is not read. The callback must not use the registry:
  /// that would give up the lock.
  [[nodiscard]] bool foreachRecord(const std::function<void(const RegistryRecord&)>& callback) const;

  /// Adds `record` and drops what it supersedes: the earlier records of its package on its key chain, except that an
  /// update keeps the installations. The registry is replaced by a rename, through "registry.next" beside it, which
  /// may stay behind after a failure. True when it was replaced; else the old registry is untouched. If the registry's
  /// stat fails, writing fails; reading treats the registry as empty. Throws std::out_of_range, before anything is
  /// made or written, if the event of `record` is unknown.
  [[nodiscard]] bool writeRecord(const RegistryRecord& record) const;
};

} // namespace Core::KRV
