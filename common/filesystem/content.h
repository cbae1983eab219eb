// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Common::Filesystem {

/// What std::filesystem::copy_file() does without options, its errors included: copies the bytes and the permissions of
/// a regular file, links followed, to a path at which nothing may be yet, not even a dangling link. What was made stays
/// after a failure. Unlike the standard one it lets the file system share the bytes and asks no path for its status.
/// For the sources of this folder only.
void copyContent(const std::filesystem::path& from, const std::filesystem::path& to);

} // namespace Common::Filesystem
