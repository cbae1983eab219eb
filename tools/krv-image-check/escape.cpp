// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/escape.h"

#include "common/text/printable.h"
#include "common/text/utf8.h"

#include <algorithm>

namespace ImageCheck {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

} // namespace

bool isPrintable(std::string_view text) {
  return Common::printable(text).size() == text.size() + static_cast<std::size_t>(std::ranges::count(text, '\\'));
}

bool isUtf8(std::string_view text) {
  return Common::asUtf8(text) == text;
}

std::string utf8(std::string_view text) {
  return isUtf8(text) ? std::string(text) : Common::printable(text);
}

std::string hexadecimal(std::string_view bytes) {
  std::string digits;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    digits += hexDigits[value >> 4];
    digits += hexDigits[value & 15];
  }
  return digits;
}

} // namespace ImageCheck
