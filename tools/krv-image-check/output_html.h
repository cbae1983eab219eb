// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <string>
#include <string_view>

namespace ImageCheck {

/// The report as one HTML page for a person who decides whether the image ships. The page has no script and loads
/// nothing. `toolVersion` is the version of this program.
std::string toHtml(const Report& report, std::string_view toolVersion);

} // namespace ImageCheck
