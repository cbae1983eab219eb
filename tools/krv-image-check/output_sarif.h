// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <string>
#include <string_view>

namespace ImageCheck {

/// The findings as SARIF 2.1.0, with a line break at its end. Every id of the catalogue is a rule, waived findings have
/// a suppression, and the checks that were not made are notifications of the run. Paths are relative to the root of the
/// image. `toolVersion` is the version of this program.
std::string toSarif(const Report& report, std::string_view toolVersion);

} // namespace ImageCheck
