// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"
#include "common/rpm/reader.h"
#include "tools/krv-image-check/read_package.h"

#include <optional>
#include <string>

namespace ImageCheck {

/// Judges the header and, if the context says so, the payload of a package. Fills `package` and adds the findings.
/// Returns the error with which the reference service refuses the package for what is in its header, on every device.
std::optional<Common::ErrorCode> checkHeader(const PackageContext& context, const Common::Rpm::Reader& reader,
                                             Package& package, EntryReport& report);

/// Decompresses the payload and compares every file with the digest of the header.
void checkPayload(const std::string& path, EntryReport& report);

} // namespace ImageCheck
