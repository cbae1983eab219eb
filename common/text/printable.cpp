// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/text/printable.h"

#include "common/text/utf8.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Common {

namespace {

/// Characters that a terminal does not show as a mark of their own: the control characters of ASCII and from U+0080 to
/// U+009F, line separators, and characters that are invisible or change the direction.
bool isHidden(std::string_view character) {
  static constexpr auto others = std::to_array<std::string_view>(
      {"\u061c", "\u200b", "\u200c", "\u200d", "\u200e", "\u200f", "\u2028", "\u2029", "\u202a", "\u202b", "\u202c",
       "\u202d", "\u202e", "\u2060", "\u2066", "\u2067", "\u2068", "\u2069", "\ufeff"});
  if (character.size() == 1)
    return static_cast<unsigned char>(character[0]) < ' ' || character[0] == '\x7f';
  const bool isControl =
      character.size() == 2 && character[0] == '\xc2' && static_cast<unsigned char>(character[1]) < 0xa0;
  return isControl || std::ranges::find(others, character) != others.end();
}

void appendEscaped(std::string& text, std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += "\\x";
    text += digits[value >> 4];
    text += digits[value & 15];
  }
}

} // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
    if (length == 0 || isHidden(character))
      appendEscaped(result, character);
    else
      result += character == "\\" ? "\\\\" : character;
    text.remove_prefix(character.size());
  }
  return result;
}

} // namespace Common
