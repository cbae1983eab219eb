// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Common::Filesystem {

/// Creates the missing parent directories of `path`. Passes on the standard library's errors; the calling operation
/// converts them into its own. Only for the sources of this folder.
inline void createParents(const std::filesystem::path& path) {
  // A bare file name has no parent, and create_directories("") fails.
  if (path.has_parent_path())
    std::filesystem::create_directories(path.parent_path());
}

} // namespace Common::Filesystem
