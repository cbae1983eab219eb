// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <string>

namespace ImageCheck::Html {

/// The section with the certificates of the developers on a time line until each ends; empty if there are none.
std::string certificateSection(const Report& report);

} // namespace ImageCheck::Html
