// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"
#include "sandbox/store/directory.h"

namespace Sandbox {

/// The lock that lets only one process change the packages of a root. It is released when the process ends.
class StoreLock {
public:
  /// Locks the file "lock" in `folder`, and creates it if it is missing. Does not wait. Throws Common::Error: Internal
  /// if another process has the lock, Filesystem if the file cannot be opened.
  explicit StoreLock(const Directory& folder);

private:
  Common::Posix::FileDescriptor m_file;
};

} // namespace Sandbox
