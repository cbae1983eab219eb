// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error.h"

#include <filesystem>

/// What the shared library has no operation for: entries of the root, links never followed.
namespace Sandbox {

/// The type of the entry itself; not_found when there is none. Throws Common::Error, Filesystem, when that cannot be
/// said.
std::filesystem::file_type typeOf(const std::filesystem::path& path);

inline bool isPresent(const std::filesystem::path& path) {
  return typeOf(path) != std::filesystem::file_type::not_found;
}

/// Whether nothing but real directories leads from `root` to the entry `name` below it, so that no link takes it
/// elsewhere. The entry itself is not looked at.
bool isReachedDirectly(const std::filesystem::path& root, const std::filesystem::path& name);

/// Removes a directory that is empty. One that is not, or is none, stays. Throws Common::Error, Filesystem.
void removeIfEmpty(const std::filesystem::path& directory);

} // namespace Sandbox
