// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "fuzz/mutator.h"

#include <array>
#include <optional>
#include <utility>
#include <vector>

namespace Fuzz {

namespace {

/// One DER value. It has parts if its tag says so, or if it is an octet string that contains DER values.
struct Value {
  unsigned char tag = 0;
  std::string content;
  std::vector<Value> parts;
};

constexpr unsigned char octetString = 0x04;
constexpr unsigned char constructedBit = 0x20;
constexpr int maximalDepth = 40;

std::optional<std::size_t> takeLength(std::string_view& bytes) {
  if (bytes.empty())
    return std::nullopt;
  const auto first = static_cast<unsigned char>(bytes.front());
  bytes.remove_prefix(1);
  if (first < 0x80)
    return first;
  const std::size_t count = first & 0x7f;
  if (count == 0 || count > 4 || count > bytes.size())
    return std::nullopt;
  std::size_t length = 0;
  for (const char byte : bytes.substr(0, count))
    length = length << 8 | static_cast<unsigned char>(byte);
  bytes.remove_prefix(count);
  return length;
}

/// Parses `bytes` as a sequence of values; nothing if it is not one.
std::optional<std::vector<Value>> parse(std::string_view bytes, int depth) {
  std::vector<Value> values;
  while (!bytes.empty()) {
    Value value{.tag = static_cast<unsigned char>(bytes.front()), .content = {}, .parts = {}};
    bytes.remove_prefix(1);
    const std::optional<std::size_t> length = takeLength(bytes);
    if (!length || *length > bytes.size() || depth > maximalDepth)
      return std::nullopt;
    value.content = bytes.substr(0, *length);
    bytes.remove_prefix(*length);
    if ((value.tag & constructedBit) != 0 || value.tag == octetString)
      value.parts = parse(value.content, depth + 1).value_or(std::vector<Value>());
    values.push_back(std::move(value));
  }
  return values;
}

std::string print(const std::vector<Value>& values) {
  std::string bytes;
  for (const Value& value : values) {
    const std::string content = value.parts.empty() ? value.content : print(value.parts);
    bytes += static_cast<char>(value.tag);
    std::string length;
    for (std::size_t rest = content.size(); rest > 0; rest >>= 8)
      length.insert(length.begin(), static_cast<char>(rest & 0xff));
    if (content.size() >= 0x80)
      bytes += static_cast<char>(0x80 | length.size());
    bytes += content.empty() ? std::string(1, '\0') : length;
    bytes += content;
  }
  return bytes;
}

using Place = std::pair<std::vector<Value>*, std::size_t>;

void collect(std::vector<Value>& values, std::vector<Place>& places) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    places.emplace_back(&values, i);
    collect(values[i].parts, places);
  }
}

void mutateValue(Value& value) {
  const std::string content = value.parts.empty() ? value.content : print(value.parts);
  value.content = mutateBytes(content, content.size() + 64);
  value.parts.clear(); // otherwise the content would be rebuilt from them
}

void mutateOne(std::vector<Value>& values, Random& random) {
  std::vector<Place> places;
  collect(values, places);
  if (places.empty())
    return;
  const auto [siblings, index] = places[random() % places.size()];
  const auto [others, otherIndex] = places[random() % places.size()];
  const auto place = siblings->begin() + static_cast<std::ptrdiff_t>(index);
  Value copy = (*others)[otherIndex];
  constexpr std::array<unsigned char, 12> tags = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06,
                                                  0x0c, 0x17, 0x30, 0x31, 0xa0, 0x80};
  switch (random() % 8) {
  case 0:
    siblings->erase(place);
    break;
  case 1:
    siblings->insert(place, std::move(copy));
    break;
  case 2:
    *place = std::move(copy);
    break;
  case 3:
    place->tag = tags[random() % tags.size()];
    break;
  default:
    mutateValue(*place);
  }
}

} // namespace

std::string mutateDer(std::string_view der, Random& random) {
  std::optional<std::vector<Value>> values = parse(der, 0);
  if (!values || values->empty() || random() % 16 == 0)
    return mutateBytes(std::string(der), der.size() + 64);
  for (std::size_t changes = 1 + random() % 3; changes > 0; --changes)
    mutateOne(*values, random);
  return print(*values);
}

} // namespace Fuzz
