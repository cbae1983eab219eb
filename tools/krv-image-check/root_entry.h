// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/placement.h"
#include "tools/krv-image-check/image_tree.h"

#include <filesystem>
#include <optional>

namespace ImageCheck {

/// The entry of a file tree at `path`, for the simulation of a device that has the tree; nothing if there is none.
std::optional<Acceptance::RootEntry> rootEntry(const ImageTree& tree, const std::filesystem::path& path);

} // namespace ImageCheck
