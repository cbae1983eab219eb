// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/files/special_files.h"

#include <cerrno>
#include <system_error>

#include <sys/stat.h>

namespace Support {

void makeFifo(const std::filesystem::path& path) {
  if (mkfifo(path.c_str(), 0600) != 0)
    throw std::system_error(errno, std::generic_category(), path.string());
}

void makeSocket(const std::filesystem::path& path) {
  if (mknod(path.c_str(), S_IFSOCK | 0600, 0) != 0)
    throw std::system_error(errno, std::generic_category(), path.string());
}

} // namespace Support
