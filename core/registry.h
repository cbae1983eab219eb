// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"

#include <functional>

namespace Core::KRV {

/// The package event registry, "var/lib/krv/registry" under the root, shared with the other processes of the
/// package-manager family. Every operation finds the root afresh, takes the exclusive lock on "registry.lock" beside
/// it, waits for it as long as needed, and holds it to its end. For one thread of a process.
///
/// Failures are logged and answered with false, save that of making the directory of the lock file: Common::Error,
/// Filesystem.
class Registry {
public:
  /// Calls `callback` with each valid record in file order, while the lock is held; bad lines are logged and skipped.
  /// False when the lock could not be had or the file not be read. A missing registry is an empty one. What the
  /// callback throws passes on. The callback must not use the registry: that would give up the lock.
  bool foreachRecord(const std::function<void(const RegistryRecord&)>& callback) const;

  /// Adds `record` and drops what it supersedes: the earlier records of its package on its key chain, except that an
  /// update keeps the installations. The registry is replaced by a rename, through "registry.next" beside it, which
  /// may stay behind after a failure. True when it was replaced; else the old registry is untouched. Unlike to a
  /// reader, a registry of which the system cannot tell whether it exists is a failure, and not an empty one. Throws
  /// std::out_of_range when the event of `record` is none of the three.
  bool writeRecord(const RegistryRecord& record) const;
};

} // namespace Core::KRV
