// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/store_lock.h"

#include "common/error/error.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>

namespace Sandbox {

StoreLock::StoreLock(const Directory& folder)
    : m_file(openat(folder.descriptor(), "lock", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
  const int reason = errno;
  const std::filesystem::path file = folder.path() / "lock";
  if (!m_file)
    throw Common::Error(Common::ErrorCode::Filesystem,
                        "Couldn't open lock file: " + file.string() + ": " + std::strerror(reason));
  if (flock(m_file.get(), LOCK_EX | LOCK_NB) != 0)
    throw Common::Error(Common::ErrorCode::Internal, "Another process uses the package store: " + file.string());
}

} // namespace Sandbox
