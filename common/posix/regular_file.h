// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace Common::Posix {

/// Opens a regular file with the `flags` and the `mode` of open(2) and fills `status`. Blocks until a lease on the file
/// is given up, but never for the other end of a FIFO. Returns no descriptor on failure and sets errno: ENOTSUP if the
/// file is not a regular file. Symlinks are followed unless `flags` has O_NOFOLLOW. Do not pass O_TRUNC: it would empty
/// a file before its type is known.
inline FileDescriptor openRegularFile(const char* path, int flags, mode_t mode, struct stat& status) {
  const auto isRegular = [&status](const FileDescriptor& file) {
    if (!file || fstat(file.get(), &status) != 0)
      return false;
    errno = ENOTSUP;
    return S_ISREG(status.st_mode);
  };
  FileDescriptor file(open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
  if (!file && errno == EWOULDBLOCK) {
    // The file has a lease. Only an open(2) without O_NONBLOCK waits for its end. Such an open must not look the path
    // up again: the path may be a FIFO by now.
    const FileDescriptor found(open(path, O_PATH | O_CLOEXEC | (flags & O_NOFOLLOW)));
    if (!isRegular(found))
      return FileDescriptor();
    const std::string link = "/proc/self/fd/" + std::to_string(found.get());
    file = FileDescriptor(open(link.c_str(), (flags & ~(O_CREAT | O_NOFOLLOW)) | O_CLOEXEC));
  }
  return isRegular(file) ? std::move(file) : FileDescriptor();
}

} // namespace Common::Posix
