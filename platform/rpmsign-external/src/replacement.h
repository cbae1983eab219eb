// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <string>
#include <string_view>

#include <sys/types.h>

namespace PackageSignatures {

/// A new file beside an old one, which it replaces in one step. It is removed again when anything fails before that.
class Replacement {
public:
  /// Makes an empty file in `directory`, a descriptor that has to outlive this object, for the file that is called
  /// `name` there. Throws SigningError.
  Replacement(int directory, std::string name);
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  void write(std::string_view bytes);
  /// Appends what `file` holds from `offset` on.
  void writeRest(int file, off_t offset);
  /// Gives the new file the owner, mode and extended attributes of `original` and puts it in place. Throws
  /// SigningError, also when the file in its place is no longer `original`.
  void commit(int original);

private:
  int m_directory;
  std::string m_name;
  std::string m_temporaryName;
  FileDescriptor m_file;
};

} // namespace PackageSignatures
