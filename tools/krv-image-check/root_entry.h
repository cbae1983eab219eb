// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/placement.h"
#include "tools/krv-image-check/image_tree.h"

#include <filesystem>
#include <optional>

namespace ImageCheck {

/// Returns the entry at `path` of a file tree, for the simulation of a device that has the tree. No value if the path
/// does not exist.
std::optional<Acceptance::RootEntry> rootEntry(const ImageTree& tree, const std::filesystem::path& path);

} // namespace ImageCheck
