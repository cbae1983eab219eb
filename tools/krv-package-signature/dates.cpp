// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/dates.h"

#include <array>

std::string toText(std::time_t time) {
  std::tm parts{};
  std::array<char, 40> text{};
  gmtime_r(&time, &parts);
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::optional<std::time_t> parseDay(const std::string& text) {
  std::tm parts{};
  const char* const end = strptime(text.c_str(), "%Y-%m-%d", &parts);
  if (end == nullptr)
    return std::nullopt;
  const std::time_t day = timegm(&parts);
  // strptime() accepts spaces, short numbers, and days that the month does not have.
  return toText(day) == text + "T00:00:00Z" ? std::optional(day) : std::nullopt;
}
