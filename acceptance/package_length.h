// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>
#include <string>

namespace Acceptance {

/// Checks that a package file is not longer than its signature header says. `package` is its header, `file` is the
/// file, open for reading, with `size` bytes. Throws Common::Error: BadPackageFileFormat with `path`, also for a header
/// that does not say it.
void requireNothingBehindPayload(const Common::Rpm::Reader& package, int file, std::uint64_t size,
                                 const std::string& path);

} // namespace Acceptance
