// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/image_tree.h"

#include <optional>
#include <string>

namespace ImageCheck {

/// The path of the tool's program in the image, as its unit or the usual folders have it; nothing if it is not there.
std::optional<std::string> toolProgram(const ImageTree& image);

/// Why systemd does not start the tool at the first boot of the image; empty if it does. Presets count if the image has
/// no machine id, because systemd then applies them at the first boot.
std::string whyToolIsNotStarted(const ImageTree& image);

} // namespace ImageCheck
