// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Common::Filesystem {

/// Makes the missing parent directories of `path`, with the standard library's own errors: the operation that it is a
/// step of turns them into its own. For the sources of this folder only.
inline void createParents(const std::filesystem::path& path) {
  // A bare file name has no parent to make, and the library refuses to make "".
  if (path.has_parent_path())
    std::filesystem::create_directories(path.parent_path());
}

} // namespace Common::Filesystem
