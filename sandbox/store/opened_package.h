// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <cstdint>
#include <string>

namespace Sandbox {

/// A package file that somebody has asked for. The file is opened once, links followed: what is judged and copied is
/// what was opened, whatever the path leads to later.
class OpenedPackage {
public:
  /// Throws Common::Error: FileNotFound for a relative path and for anything that is no regular file.
  explicit OpenedPackage(const std::string& path);

  /// What is wrong with the file as far as its headers tell. Throws Common::Error: what Common::Rpm::Reader and
  /// Common::readPackageCmses() throw; BadPackageFileFormat for a file that is longer than its signature header says,
  /// also for a header that does not say it.
  void requirePackage();

  /// How many bytes of the file are the package. To be asked after requirePackage().
  std::uint64_t size() const { return m_size; }

  /// Writes no more than size() bytes to `destination`, even if the file has grown. Throws Common::Error, Filesystem.
  void copyTo(const Common::Posix::FileDescriptor& destination) const;

private:
  std::string m_path; ///< for messages
  Common::Posix::FileDescriptor m_file;
  std::uint64_t m_size = 0;
};

} // namespace Sandbox
