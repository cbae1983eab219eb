// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace ImageCheck {

/// A file tree that is the root of another system. Paths are below the root and every symlink is resolved inside it, as
/// the system itself does: nothing outside the tree is opened. Opening never blocks for a FIFO and never opens a
/// device.
class ImageTree {
public:
  /// Opens the root. Throws std::system_error if it is not a directory that can be opened.
  explicit ImageTree(const std::string& root);

  /// The entry at `path`, with O_PATH. On failure returns no descriptor, and errno says why.
  Common::Posix::FileDescriptor find(const std::filesystem::path& path) const;

  /// The status of the entry at `path`; nothing on failure, and errno says why.
  std::optional<struct stat> status(const std::filesystem::path& path) const;

  /// The status of the entry at `path`, of which no component is followed if it is a symlink; nothing on failure.
  std::optional<struct stat> ownStatus(const std::filesystem::path& path) const;

  /// The directory at `path`, open for reading. On failure returns no descriptor, and errno says why.
  Common::Posix::FileDescriptor openDirectory(const std::filesystem::path& path) const;

  /// The regular file at `path`, open for reading. On failure returns no descriptor, and errno says why: ENOTSUP for
  /// anything that is not a regular file.
  Common::Posix::FileDescriptor openFile(const std::filesystem::path& path) const;

  /// The content of the regular file at `path`; nothing if it cannot be read or is longer than `limit` bytes.
  std::optional<std::string> read(const std::filesystem::path& path, std::size_t limit) const;

  /// The names in the directory at `path`, sorted; empty if it cannot be read.
  std::vector<std::string> list(const std::filesystem::path& path) const;

  /// The status of the root itself.
  const struct stat& rootStatus() const { return m_status; }

private:
  Common::Posix::FileDescriptor m_root;
  struct stat m_status {};
};

/// Opens the regular file that `found` stands for, which was opened with O_PATH. On failure returns no descriptor, and
/// errno says why: ENOTSUP for anything that is not a regular file.
Common::Posix::FileDescriptor openForReading(const Common::Posix::FileDescriptor& found);

/// The names in an open directory, sorted, without "." and "..". Throws std::system_error.
std::vector<std::string> namesIn(const Common::Posix::FileDescriptor& directory);

/// The whole content of an open file, from the beginning; nothing if it cannot be read or is longer than `limit` bytes.
std::optional<std::string> contentOf(const Common::Posix::FileDescriptor& file, std::size_t limit);

/// A path that leads to the open file, whatever has become of its name.
std::string pathOf(const Common::Posix::FileDescriptor& file);

} // namespace ImageCheck
