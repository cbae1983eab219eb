// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store_lock.h"

#include "common/error/error.h"
#include "common/filesystem/entry.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Sandbox {

StoreLock::StoreLock(const std::filesystem::path& file) {
  Common::Filesystem::createDirectories(file.parent_path());
  m_descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (m_descriptor < 0)
    throw Common::Error(Common::ErrorCode::Filesystem,
                        "Couldn't open lock file: " + file.string() + ": " + std::strerror(errno));
  if (flock(m_descriptor, LOCK_EX | LOCK_NB) == 0)
    return;
  close(m_descriptor);
  throw Common::Error(Common::ErrorCode::Internal, "Another process has the package store: " + file.string());
}

StoreLock::~StoreLock() {
  close(m_descriptor);
}

} // namespace Sandbox
