// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace Common::Rpm {

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

/// The type that a mode says (inode(7)); unknown for a mode with none of these types.
std::filesystem::file_type typeOf(rpm_mode_t mode);

/// Where a packaged file's name leads below the root of a file system, without a '/' at its ends; "" for the root. It
/// cannot climb out: as in the file system, the root is its own parent.
std::string nameBelowRoot(std::string_view name);

/// The files of a package or of a database entry, in header order. Throws Common::Error: BadPackageFileFormat "Couldn't
/// read the list of files of the package" when the list is broken or the header not sound.
std::vector<PackagedFile> fileList(const Reader& package);

} // namespace Common::Rpm
