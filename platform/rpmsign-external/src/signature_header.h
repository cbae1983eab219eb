// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/package_file.h"

#include <string>
#include <string_view>

namespace PackageSignatures {

/// The signature header of an open package, with magic and padding, after its container was replaced by `container`
/// or, when that is empty, removed. All other tags stay; the space that is reserved for signatures gives and takes, so
/// that the header keeps its size where it can. Throws SigningError when the header is damaged or would become
/// larger than what librpm reads.
std::string rewriteSignatureHeader(int file, const PackageParts& parts, std::string_view container);

} // namespace PackageSignatures
