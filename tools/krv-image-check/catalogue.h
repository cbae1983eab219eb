// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <span>
#include <string_view>

namespace ImageCheck {

/// The explanation of the findings with one id. All texts are plain ASCII. Titles end without a full stop.
struct Explanation {
  std::string_view id;
  Severity severity;
  bool canBeWaived;
  std::string_view title;       ///< one line
  std::string_view consequence; ///< on the device
  std::string_view remedy;      ///< for the builder of the image
};

/// Every id, in the order of the documentation: image, entry, package, signature, together, against the past, this
/// tool.
std::span<const Explanation> catalogue();

/// The explanation of `id`; null for an unknown one.
const Explanation* findExplanation(std::string_view id);

/// The explanation of an id of this program. Throws std::logic_error for an unknown one.
const Explanation& explain(std::string_view id);

/// "error", "warning" or "note".
std::string_view nameOf(Severity severity);

} // namespace ImageCheck
