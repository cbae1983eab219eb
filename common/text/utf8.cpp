// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/text/utf8.h"

namespace Common {

namespace {

/// The valid sequences for one range of first bytes (RFC 3629, section 4). All bytes after the second are between 0x80
/// and 0xbf.
struct Sequence {
  unsigned char firstFrom, firstTo;
  unsigned char secondFrom, secondTo;
  std::size_t length;
};

constexpr Sequence sequences[] = {
    {0x00, 0x7f, 0x00, 0x00, 1}, {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
    {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

bool isWithin(char character, unsigned char from, unsigned char to) {
  const auto byte = static_cast<unsigned char>(character);
  return from <= byte && byte <= to;
}

bool begins(std::string_view text, const Sequence& sequence) {
  if (text.size() < sequence.length || !isWithin(text[0], sequence.firstFrom, sequence.firstTo))
    return false;
  for (std::size_t i = 1; i < sequence.length; ++i)
    if (!isWithin(text[i], i == 1 ? sequence.secondFrom : 0x80, i == 1 ? sequence.secondTo : 0xbf))
      return false;
  return true;
}

} // namespace

std::size_t characterLength(std::string_view text) {
  for (const Sequence& sequence : sequences)
    if (begins(text, sequence))
      return sequence.length;
  return 0;
}

std::string asUtf8(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    result += length == 0 ? "?" : text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result;
}

} // namespace Common
