// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace ImageCheck {

/// `text` for a line of a terminal or a page: each byte that is not part of valid UTF-8, each control character and
/// each character that changes the direction of the text is replaced by "\xNN" per byte, and a backslash by two.
std::string printable(std::string_view text);

/// Whether printable() changes nothing but backslashes.
bool isPrintable(std::string_view text);

/// Whether `text` is valid UTF-8.
bool isUtf8(std::string_view text);

/// `text` if it is valid UTF-8, else printable().
std::string utf8(std::string_view text);

/// Each byte as two hexadecimal digits.
std::string hexadecimal(std::string_view bytes);

} // namespace ImageCheck
