// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <string>
#include <string_view>

#include <sys/types.h>

namespace PackageSignatures {

/// A temporary file beside an existing one, which it replaces by a rename. The destructor removes it unless commit()
/// has succeeded.
class Replacement {
public:
  /// Creates an empty file in `directory`, a descriptor that must outlive this object, to replace the file `name`
  /// there. Throws SigningError.
  Replacement(int directory, std::string name);
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  void write(std::string_view bytes);
  /// Appends the content of `file` from `offset` on.
  void writeRest(int file, off_t offset);
  /// Copies owner, mode and extended attributes of `original` and renames the new file. Throws SigningError, also if
  /// `name` is no longer the file `original`.
  void commit(int original);

private:
  int m_directory;
  std::string m_name;
  std::string m_temporaryName;
  FileDescriptor m_file;
};

} // namespace PackageSignatures
