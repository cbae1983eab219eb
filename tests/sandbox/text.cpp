// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/text.h"

#include <regex>

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (auto place = text.find(from); place != std::string::npos; place = text.find(from, place + to.size()))
    text.replace(place, from.size(), to);
  return text;
}

std::string withoutTimes(const std::string& log) {
  static const std::regex time("(Time spent for pre-installation: )[0-9]+( seconds)");
  return std::regex_replace(log, time, "$1N$2");
}

std::string withoutTimestamps(const std::string& registry) {
  static const std::regex time("((^|\\n) *)timestamp=[0-9]+ ");
  return std::regex_replace(registry, time, "$1timestamp=T ");
}
