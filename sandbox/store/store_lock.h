// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"
#include "sandbox/store/directory.h"

namespace Sandbox {

/// The lock that makes one process the only one to change the packages of a root. It goes with the process.
class StoreLock {
public:
  /// Locks the file "lock" in `folder`, which is made if it is missing. Throws Common::Error: Internal when another
  /// process has the lock, Filesystem when the file cannot be opened.
  explicit StoreLock(const Directory& folder);

private:
  Common::Posix::FileDescriptor m_file;
};

} // namespace Sandbox
