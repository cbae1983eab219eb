// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace ImageCheck {

/// Whether Common::printable() changes nothing but backslashes.
bool isPrintable(std::string_view text);

/// Whether `text` is valid UTF-8.
bool isUtf8(std::string_view text);

/// `text` if it is valid UTF-8, else Common::printable().
std::string utf8(std::string_view text);

/// Each byte as two hexadecimal digits.
std::string hexadecimal(std::string_view bytes);

} // namespace ImageCheck
