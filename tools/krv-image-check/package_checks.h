// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"
#include "common/rpm/reader.h"
#include "tools/krv-image-check/read_package.h"

#include <string>

namespace ImageCheck {

/// Judges the header of a package. Adds the findings and fills the files of `package` and, unless it has one, its
/// refusal.
void checkHeader(const PackageContext& context, const Common::Rpm::Reader& reader, Package& package,
                 EntryReport& report);

/// Decompresses the payload and compares every file with the digest of the header. Adds the finding and the refusal of
/// the package in `report`.
void checkPayload(const std::string& path, EntryReport& report);

} // namespace ImageCheck
