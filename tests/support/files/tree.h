// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace Support {

/// The entries at and below `path`, sorted by name, one per line: the path below `path` and the type; for a file also
/// permissions, content (for a large one size and fingerprint) and extended attributes; for a symlink its target. Uses
/// no code of the project. "nothing" if `path` does not exist.
std::string describeTree(const std::filesystem::path& path);

/// Sets an extended attribute. Throws on failure.
void attach(const std::filesystem::path& path, const std::string& name, const std::string& value);

/// Whether the file system of `folder` supports attributes of the user namespace.
bool keepsAttributes(const std::filesystem::path& folder);

} // namespace Support
