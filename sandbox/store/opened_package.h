// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <cstdint>
#include <string>

namespace Sandbox {

/// A package file of an installation call. It is opened once, symlinks followed: the opened file is checked and copied,
/// even if the path changes later.
class OpenedPackage {
public:
  /// Throws Common::Error: FileNotFound if the path is relative or not a regular file.
  explicit OpenedPackage(const std::string& path);

  /// Checks the headers of the file. Throws Common::Error: the errors of Common::Rpm::Reader and
  /// Common::readPackageCmses(); BadPackageFileFormat if the file is longer than its signature header says or the
  /// header does not say its size.
  void requirePackage();

  /// The size of the package in bytes. Valid after requirePackage().
  std::uint64_t size() const { return m_size; }

  /// Writes at most size() bytes to `destination`, even if the file has grown. Throws Common::Error, Filesystem.
  void copyTo(const Common::Posix::FileDescriptor& destination) const;

private:
  std::string m_path; ///< for messages
  Common::Posix::FileDescriptor m_file;
  std::uint64_t m_size = 0;
};

} // namespace Sandbox
