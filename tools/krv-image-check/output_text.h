// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <string>
#include <string_view>

namespace ImageCheck {

enum class Colour { Off, On };

/// The report for people: a line per finding, the plan as a table, the counts, and what was not checked. Only the
/// colours are not printable characters.
std::string toText(const Report& report, Colour colour);

/// The explanation of an id of the catalogue, or of all ids for "all".
std::string explanationText(std::string_view id);

} // namespace ImageCheck
