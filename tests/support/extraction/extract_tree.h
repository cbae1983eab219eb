// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/archive.h"

#include <filesystem>
#include <string>

namespace Support {

/// Unpacks `archive` below `target`, a folder that exists and is empty, with handlers as a careful caller would have
/// them: nothing is written through a symbolic link, and nothing that exists is replaced. Throws what extract() throws,
/// std::runtime_error for such an entry and std::filesystem::filesystem_error.
void extractTree(Common::Rpm::ArchiveReader& archive, const std::filesystem::path& target);

/// All that is below `folder`, one line per entry in the order of their names: name, type, permission bits, and the
/// target of a link, or the size and the digest of a regular file and the first of its names.
std::string listTree(const std::filesystem::path& folder);

} // namespace Support
