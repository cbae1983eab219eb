// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_content.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

/// The changes of the root that an installation or a removal makes. All paths are below the root.
namespace Acceptance {

/// An entry of the root. The inode number identifies it in its file system.
struct RootEntry {
  std::filesystem::file_type type;
  std::filesystem::perms permissions = std::filesystem::perms::none; ///< with set-id and sticky bits
  std::uint64_t inode = 0;
};

/// Returns the entry of the root at a path, without following a symlink. No value if the path does not exist.
using Root = std::function<std::optional<RootEntry>(const std::filesystem::path&)>;

/// The change of one file or symlink of the root.
struct Change {
  enum class Kind { Add, Replace, Delete };

  Kind kind;
  std::size_t number; ///< its name in the folder of new or old files
  std::filesystem::path path;
  std::uint64_t oldInode = 0; ///< of the entry to replace or delete
  std::uint64_t newInode = 0; ///< of the new entry

  bool operator==(const Change&) const = default;
};

struct DirectoryMode {
  std::filesystem::path path;
  std::filesystem::perms permissions;
  std::filesystem::perms earlier = std::filesystem::perms::owner_all; ///< before the change, or at its creation

  bool operator==(const DirectoryMode&) const = default;
};

struct FileChanges {
  std::vector<std::filesystem::path> newDirectories; ///< parents first
  std::vector<Change> changes;
  std::vector<std::filesystem::path> obsoleteDirectories; ///< removed if empty, children first
  std::vector<DirectoryMode> directoryModes;              ///< set after all changes, children first

  bool operator==(const FileChanges&) const = default;
};

/// The files of the installed packages.
struct Ownership {
  const PackagedFiles& earlier; ///< of the installed version of the package itself
  const PackagedFiles& others;  ///< of all other packages
};

/// The changes of `root` to install `files`. They touch only the package's own files and follow no symlink. Throws
/// Common::Error, FileConflict, if that is impossible. The number of an added or replaced file is its index in the
/// package.
FileChanges placeFiles(const Root& root, const PackagedFiles& files, const Ownership& ownership);

/// The changes of `root` to remove the package with the files `ownership.earlier`. These stay: entries that other
/// packages own too, a directory in the place of a file or symlink, and a file or symlink in the place of a directory.
FileChanges removeFiles(const Root& root, const Ownership& ownership);

} // namespace Acceptance
