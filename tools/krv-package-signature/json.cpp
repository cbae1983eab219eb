// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/json.h"

#include <array>
#include <cstdio>

namespace Json {

namespace {

/// The number of bytes of the UTF-8 character at the front of `text`; 0 when there is none.
std::size_t characterSize(std::string_view text) {
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const auto continues = [&](std::size_t i) { return (byte(i) & 0xC0) == 0x80; };
  const unsigned first = byte(0);
  if (first < 0x80)
    return 1;
  // The second byte is limited further where an over-long form, a surrogate or more than U+10FFFF would fit.
  if (first >= 0xC2 && first <= 0xDF)
    return continues(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    const bool allowed = (first != 0xE0 || byte(1) >= 0xA0) && (first != 0xED || byte(1) <= 0x9F);
    return allowed && continues(1) && continues(2) ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    const bool allowed = (first != 0xF0 || byte(1) >= 0x90) && (first != 0xF4 || byte(1) <= 0x8F);
    return allowed && continues(1) && continues(2) && continues(3) ? 4 : 0;
  }
  return 0;
}

std::string escaped(char character) {
  if (character == '"' || character == '\\')
    return {'\\', character};
  if (static_cast<unsigned char>(character) >= 0x20 && character != '\x7f')
    return {character};
  std::array<char, 7> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "\\u%04x", static_cast<unsigned>(character));
  return buffer.data();
}

template <typename Values, typename ToText>
std::string joined(const Values& values, ToText toText) {
  std::string result;
  for (const auto& value : values)
    result += (result.empty() ? "" : ",") + toText(value);
  return result;
}

} // namespace

std::string text(std::string_view value) {
  std::string result = "\"";
  while (!value.empty()) {
    const std::size_t size = characterSize(value);
    if (size == 0)
      result += "\\ufffd";
    else
      result += size == 1 ? escaped(value.front()) : std::string(value.substr(0, size));
    value.remove_prefix(size == 0 ? 1 : size);
  }
  return result + '"';
}

std::string array(const std::vector<std::string>& values) {
  return "[" + joined(values, [](const std::string& value) { return value; }) + "]";
}

std::string object(const std::vector<std::pair<std::string, std::string>>& members) {
  return "{" + joined(members, [](const auto& member) { return text(member.first) + ":" + member.second; }) + "}";
}

} // namespace Json
