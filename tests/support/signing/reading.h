// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace Support {

/// Reads the signatures of a container as the library does, and a second time with the keys decoded, as it does to
/// verify them. Returns the first difference in what a reader can ask, or an empty text.
std::string differenceWithKeys(std::string_view container);

} // namespace Support
