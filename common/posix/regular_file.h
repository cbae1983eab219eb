// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <cerrno>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace Common::Posix {

/// Opens a regular file with the `flags` and the `mode` of open(2) and fills `status` with its status. Opens nothing
/// else: opening a device may have an effect, and opening a FIFO may block. Waits until a lease on the file is given
/// up. Returns no descriptor on failure, and errno says why: ENOTSUP for anything that is not a regular file of at
/// least `leastSize` bytes. Symlinks are followed unless `flags` has O_NOFOLLOW. O_TRUNC would empty the file before it
/// is known to be a regular one.
[[nodiscard]] inline FileDescriptor openRegularFile(const char* path, int flags, mode_t mode, struct stat& status,
                                                    off_t leastSize = 0) {
  const auto isWanted = [&](const FileDescriptor& file) {
    if (!file || fstat(file.get(), &status) != 0)
      return false;
    errno = ENOTSUP;
    return S_ISREG(status.st_mode) && status.st_size >= leastSize;
  };
  FileDescriptor file;
  // O_PATH opens nothing. The link in /proc leads to the file that was checked, even if a FIFO has taken its place.
  if (const FileDescriptor found(open(path, O_PATH | O_CLOEXEC | (flags & O_NOFOLLOW))); found) {
    if (!isWanted(found))
      return FileDescriptor();
    const std::string link = "/proc/self/fd/" + std::to_string(found.get());
    file = FileDescriptor(open(link.c_str(), (flags & ~(O_CREAT | O_NOFOLLOW)) | O_CLOEXEC));
  }
  // The file is to be created, or there is no /proc. Then a file that takes the place just now is opened, and refused.
  if (!file && errno == ENOENT)
    file = FileDescriptor(open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
  return isWanted(file) ? std::move(file) : FileDescriptor();
}

} // namespace Common::Posix
