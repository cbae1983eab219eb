// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/findings.h"
#include "tools/krv-image-check/image_tree.h"

#include <string>

namespace ImageCheck {

/// The directory of the packages, below the root.
inline constexpr const char* preInstallDirectory = "usr/share/krv/pre-install-apps";

/// The findings about the image itself, without those about the authorities.
Findings checkImage(const ImageTree& image);

/// RPM's name for the architecture of the image's programs; empty if none is found.
std::string architectureOf(const ImageTree& image);

} // namespace ImageCheck
