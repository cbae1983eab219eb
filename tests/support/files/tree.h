// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace Support {

/// What is at `path` and below it, one line per entry in the order of the names: its path below `path`, its type, and
/// of a file the permissions, the content (of a large one: its size and a fingerprint) and the extended attributes, of
/// a link its text. Read without any code of the project. "nothing" for a missing `path`.
std::string describeTree(const std::filesystem::path& path);

/// Attaches an extended attribute. Throws when it cannot.
void attach(const std::filesystem::path& path, const std::string& name, const std::string& value);

/// Whether the file system of `folder` takes attributes of the user namespace: not every one does.
bool keepsAttributes(const std::filesystem::path& folder);

} // namespace Support
