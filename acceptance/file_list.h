// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Acceptance {

/// What a header says of one file. Nothing of it has been checked.
struct PackagedFile {
  int index;        ///< the position in the header's list, which ArchiveEntry::index is as well
  std::string name; ///< as it is written there: it may be relative, climb, or appear twice
  std::filesystem::file_type type;
  std::filesystem::perms permissions; ///< with set-id and sticky bits
  std::uint64_t size;
  std::string digest; ///< of the content, as hexadecimal digits; empty where the header has none
  std::string target; ///< of a symbolic link
  bool isGhost;       ///< the package owns the name and has no content for it
  bool isFurtherName; ///< another name of a file that is in the list already
};

/// The files of a package or of a database entry, in header order. Throws Common::Error: BadPackageFileFormat "Couldn't
/// read the list of files of the package" when the list is broken or the header not sound.
std::vector<PackagedFile> fileList(const Common::Rpm::Reader& package);

} // namespace Acceptance
