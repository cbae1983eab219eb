// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/read_package.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace ImageCheck {

/// Reads every entry of the pre-install directory of `context.image` in worker processes; sorted by name. An entry at
/// which a worker dies is a damaged package.
std::vector<EntryReport> readEntries(const PackageContext& context, unsigned jobs,
                                     const std::function<void(std::size_t done, std::size_t all)>& progress);

} // namespace ImageCheck
