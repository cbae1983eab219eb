// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Common {

/// `text` with a "?" for each byte that is not part of valid UTF-8 (RFC 3629). The bus allows only UTF-8: an answer or
/// an error with such bytes would never be sent.
std::string asUtf8(std::string_view text);

/// The number of bytes of the first character of `text`, which must not be empty; 0 if it is not valid UTF-8.
std::size_t characterLength(std::string_view text);

} // namespace Common
