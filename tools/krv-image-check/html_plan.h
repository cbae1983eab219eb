// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <string>

namespace ImageCheck::Html {

/// The section with the table of entries by scenarios, and with the packages that each device ends with.
std::string planSection(const Report& report);

} // namespace ImageCheck::Html
