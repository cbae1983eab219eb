// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/types.h>

namespace Sandbox {

/// The status of a directory entry. The inode number identifies it in its file system.
struct Entry {
  std::filesystem::file_type type;
  std::filesystem::perms permissions; ///< with set-id and sticky bits
  uid_t owner;
  std::uint64_t inode;
};

/// An open directory. All operations are relative to its descriptor and follow no symlink, so nobody can redirect them
/// by renaming an entry. A `name` is the name of an entry, a `path` leads from here through directories. Every
/// operation throws Common::Error, Filesystem, after an error line with the reason; none blocks.
class Directory {
public:
  /// Opens the directory at `path`, symlinks followed.
  explicit Directory(const std::filesystem::path& path);

  /// The directory at `path`. Returns nothing if it is missing, or if a component of the path is a symlink or a file.
  std::optional<Directory> find(const std::filesystem::path& path) const;

  /// The directory at `path`, which must exist.
  Directory open(const std::filesystem::path& path) const;

  /// The directory at `path`. Missing parents are created with mode 0755. The last directory gets mode 0700, also if it
  /// exists.
  Directory openPrivate(const std::filesystem::path& path) const;

  /// Makes a directory for its owner alone (0700). False when the name is taken.
  bool makeDirectory(const std::string& name) const;

  /// The status of the directory itself.
  Entry status() const;

  /// The status of an entry; nothing if there is no such entry.
  std::optional<Entry> entry(const std::string& name) const;

  /// Makes a file for its owner alone (0600), opened for reading and writing. It is an error when the name is taken.
  Common::Posix::FileDescriptor createFile(const std::string& name) const;

  /// Opens a file for reading. Nothing when the name is free.
  std::optional<Common::Posix::FileDescriptor> openFile(const std::string& name) const;

  void createSymlink(const std::string& target, const std::string& name) const;

  /// Gives an entry another name, also in another directory. A symlink gets it itself.
  void createHardLink(const std::string& existing, const Directory& to, const std::string& name) const;

  /// Moves an entry; what had the new name is replaced.
  void rename(const std::string& name, const Directory& to, const std::string& newName) const;

  /// Moves an entry to a name that is free. False when there is no such entry and when the new name is taken.
  bool move(const std::string& name, const Directory& to, const std::string& newName) const;

  /// Exchanges two entries in one step. False when one of them is missing.
  bool exchange(const std::string& name, const Directory& other, const std::string& otherName) const;

  /// Removes an empty directory. Does nothing to any other entry.
  void removeIfEmpty(const std::string& name) const;

  /// Removes an entry and everything below it. It may be missing.
  void remove(const std::string& name) const;

  /// Sets the permissions of the directory itself.
  void setPermissions(std::filesystem::perms permissions) const;

  int descriptor() const { return m_descriptor.get(); }

  /// The path of the directory when it was opened, for messages.
  const std::filesystem::path& path() const { return m_path; }

private:
  Directory(Common::Posix::FileDescriptor descriptor, std::filesystem::path path);

  std::optional<Directory> step(const std::string& name) const;
  void makeFor(const std::string& name, mode_t mode) const;

  Common::Posix::FileDescriptor m_descriptor;
  std::filesystem::path m_path;
};

/// The place of an entry, which need not exist.
struct Place {
  Directory directory;
  std::string name;

  std::optional<Entry> entry() const { return directory.entry(name); }
};

/// The place at `path` below `root`. Returns nothing if its directory cannot be found.
std::optional<Place> findPlace(const Directory& root, const std::filesystem::path& path);

/// A path to the file of the descriptor, valid while the descriptor is open, even if the file is renamed or removed.
std::filesystem::path pathOf(const Common::Posix::FileDescriptor& descriptor);

} // namespace Sandbox
