// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/archive.h"

#include <filesystem>
#include <string>

namespace Support {

/// Unpacks `archive` below `target`, an existing, empty folder, with careful handlers: they do not write through a
/// symlink and do not replace an existing entry. Throws the errors of extract(), std::runtime_error for such an entry,
/// and std::filesystem::filesystem_error.
void extractTree(Common::Rpm::ArchiveReader& archive, const std::filesystem::path& target);

/// The entries below `folder`, sorted by name, one per line: name, type, permission bits, and the target of a symlink,
/// or size, digest and first name of a regular file.
std::string listTree(const std::filesystem::path& folder);

} // namespace Support
