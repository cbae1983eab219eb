// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/package_file.h"

#include <string>
#include <string_view>

namespace PackageSignatures {

/// The signature header of an open package, with magic and padding, after its container was replaced by `container` or,
/// if that is empty, removed. All other tags stay. The reserved space grows or shrinks so that the header keeps its
/// size if possible. Throws SigningError if the header is damaged or would exceed librpm's limits.
std::string rewriteSignatureHeader(int file, const PackageParts& parts, std::string_view container);

} // namespace PackageSignatures
