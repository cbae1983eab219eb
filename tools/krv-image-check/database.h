// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/image_tree.h"

#include <filesystem>
#include <string>

namespace ImageCheck {

/// Copies the RPM database of a file tree to `destination`, a folder that it creates. Returns why there is no database;
/// empty if there is one. Only databases in SQLite are copied, because librpm reads no other on every build machine.
/// Throws std::system_error if the copy cannot be written.
std::string copyDatabase(const ImageTree& tree, const std::filesystem::path& destination);

} // namespace ImageCheck
