// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <string>
#include <string_view>

#include <sys/types.h>

namespace PackageSignatures {

/// A new file beside an old one, which it replaces in one step when all is well. It goes again when it does not.
class Replacement {
public:
  /// Makes an empty file in the folder of `path`, which must not be a link. Throws SigningError.
  explicit Replacement(std::string path);
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  void write(std::string_view bytes);
  /// Appends what `file` holds from `offset` on.
  void writeRest(int file, off_t offset);
  /// Gives the new file the owner, mode and extended attributes of `original` and puts it in place.
  void commit(int original);

private:
  std::string m_path;
  std::string m_temporaryPath;
  FileDescriptor m_file;
};

} // namespace PackageSignatures
