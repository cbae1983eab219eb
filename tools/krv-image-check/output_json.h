// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <string>
#include <string_view>

namespace ImageCheck {

/// The report as JSON, with a line break at its end; docs/image-check.schema.json describes it. `toolVersion` is the
/// version of this program.
std::string toJson(const Report& report, std::string_view toolVersion);

} // namespace ImageCheck
