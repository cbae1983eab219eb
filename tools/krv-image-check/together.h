// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/findings.h"
#include "tools/krv-image-check/image_tree.h"
#include "tools/krv-image-check/read_package.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ImageCheck {

/// Finds the packages that cannot be installed beside the others and those of the RPM database in `database`:
/// dependency-missing, dependency-order and conflict-declared. Works in a worker process. An entry that cannot be
/// opened any more is left out.
Findings checkDependencies(const ImageTree& image, const std::vector<EntryReport>& entries,
                           const std::filesystem::path& database);

/// Files that the reference service refuses at the first boot, because another package or the image itself has the
/// path.
Findings checkFileConflicts(const Scenario& firstBoot, const std::vector<EntryReport>& entries);

/// Whether the files of all packages need more than `space` bytes.
Findings checkSpace(const std::vector<EntryReport>& entries, std::uint64_t space);

} // namespace ImageCheck
