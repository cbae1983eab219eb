// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <string>
#include <vector>

namespace ImageCheck {

using Findings = std::vector<Finding>;

/// Sorts findings as the report has them: those about the image first, then by entry, id and the rest.
void sortFindings(Findings& findings);

} // namespace ImageCheck
