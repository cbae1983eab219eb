// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <string>

namespace ImageCheck::Html {

/// Returns the section with a time line of the developers' certificates, or an empty text if no package is signed.
std::string certificateSection(const Report& report);

} // namespace ImageCheck::Html
