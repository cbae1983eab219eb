// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/findings.h"
#include "tools/krv-image-check/image_tree.h"

#include <filesystem>
#include <optional>
#include <string>

namespace ImageCheck {

/// The trusted authorities to check with.
struct Authorities {
  bool areUsable; ///< whether a certificate can be found at all
  Findings findings;
};

/// Copies the trusted authorities of the image, or those in `given`, to `destination`, a folder that it creates.
/// OpenSSL gets the copy, because it would follow symlinks out of the image.
Authorities copyAuthorities(const ImageTree& image, const std::optional<std::string>& given,
                            const std::filesystem::path& destination);

} // namespace ImageCheck
