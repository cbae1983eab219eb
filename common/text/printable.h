// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace Common {

/// `text` for a line of a terminal: each byte that is not part of valid UTF-8, each control character and each
/// character that is invisible or changes the direction of the text is replaced by "\xNN" per byte, and a backslash by
/// two.
std::string printable(std::string_view text);

} // namespace Common
