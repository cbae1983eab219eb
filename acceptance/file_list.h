// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Acceptance {

/// One file in the words of the header. Nothing of it has been checked.
struct PackagedFile {
  int index;        ///< the position in the header's list; the same as ArchiveEntry::index
  std::string name; ///< not changed: it may be relative, contain ".." or appear twice
  std::filesystem::file_type type;
  std::filesystem::perms permissions; ///< with set-id and sticky bits
  std::uint64_t size;
  std::string digest; ///< of the content, in hexadecimal digits; empty if the header has none
  std::string target; ///< of a symlink
  bool isGhost;       ///< the package owns the path but has no content for it
  bool isFurtherName; ///< another name of a file that is already in the list
};

/// The files of a package or of a database entry, in header order. Throws Common::Error: BadPackageFileFormat "Couldn't
/// read the list of files of the package" if the list is broken or SoundHeader refuses it.
std::vector<PackagedFile> fileList(const Common::Rpm::Reader& package);

} // namespace Acceptance
