// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace Common::Filesystem {

/// A set of bits; unknown bits are ignored.
enum class ListOptions : std::uint32_t {
  None = 0,         ///< one level, in the order of the directory
  Recursive = 1,    ///< subdirectories too, each followed by its content; symlinks to directories are not followed
  SortedByTime = 2, ///< by modification time, oldest first; entries of the same time in any order
};

constexpr ListOptions operator|(ListOptions left, ListOptions right) {
  return static_cast<ListOptions>(static_cast<std::uint32_t>(left) | static_cast<std::uint32_t>(right));
}

constexpr ListOptions operator&(ListOptions left, ListOptions right) {
  return static_cast<ListOptions>(static_cast<std::uint32_t>(left) & static_cast<std::uint32_t>(right));
}

/// The entries of `directory`, of every type, each as `directory` joined with its name. With any options the
/// modification time of each entry is read, symlinks followed: a dangling symlink makes the whole listing fail.
/// Throws Common::Error, Filesystem, "Couldn't read directory: " and `directory`, after an error line with the reason.
std::vector<std::filesystem::path> listDirectory(const std::filesystem::path& directory, ListOptions options);

} // namespace Common::Filesystem
