// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/waivers.h"

#include "common/text/printable.h"
#include "tools/krv-image-check/catalogue.h"
#include "tools/krv-image-check/check.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/summary.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <fnmatch.h>

namespace ImageCheck {

namespace {

constexpr const char* form = "expected ID ENTRY-PATTERN until=YYYY-MM-DD reason=TEXT";

/// The text behind "KEY=", which `word` must begin with.
std::string valueOf(const std::string& word, const std::string& key) {
  if (!word.starts_with(key + "=") || word.size() == key.size() + 1)
    throw UsageError(form);
  return word.substr(key.size() + 1);
}

Waiver parse(const std::string& text, std::size_t number) {
  std::istringstream words(text);
  Waiver waiver{.line = number, .id = {}, .entryPattern = {}, .until = {}, .reason = {}};
  std::string until;
  std::string reason;
  words >> waiver.id >> waiver.entryPattern >> until >> std::ws;
  std::getline(words, reason);
  const auto day = parseDay(valueOf(until, "until"));
  if (!day)
    throw UsageError("until is not a day as YYYY-MM-DD");
  waiver.until = *day;
  waiver.reason = valueOf(reason, "reason");
  if (findExplanation(waiver.id) == nullptr)
    throw UsageError("unknown id " + waiver.id);
  return waiver;
}

bool matches(const Waiver& waiver, const Finding& finding) {
  return waiver.id == finding.id &&
         fnmatch(waiver.entryPattern.c_str(), finding.entry.value_or("image").c_str(), 0) == 0;
}

Finding aboutWaiver(const char* id, const Waiver& waiver, const std::string& message) {
  const std::string text = waiver.id + " " + Common::printable(waiver.entryPattern);
  return {.id = id,
          .entry = {},
          .message = "line " + std::to_string(waiver.line) + " (" + text + "): " + message,
          .about = text};
}

/// Returns the number of findings that the waiver matches.
std::size_t mark(const Waiver& waiver, Findings& findings) {
  std::size_t count = 0;
  for (Finding& finding : findings) {
    if (!matches(waiver, finding))
      continue;
    finding.waivedBy = waiver.reason;
    ++count;
  }
  return count;
}

} // namespace

std::vector<Waiver> readWaivers(const std::string& path) {
  std::ifstream file(path);
  if (!file || !std::filesystem::is_regular_file(path))
    throw UsageError(path + " cannot be read");
  std::vector<Waiver> waivers;
  std::size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#')
      continue;
    try {
      waivers.push_back(parse(line, number));
    } catch (const UsageError& error) {
      throw UsageError(path + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  return waivers;
}

void applyWaivers(const std::vector<Waiver>& waivers, std::chrono::sys_days at, Findings& findings) {
  Findings aboutWaivers;
  for (const Waiver& waiver : waivers) {
    if (!explain(waiver.id).canBeWaived)
      aboutWaivers.push_back(aboutWaiver("waiver-refused", waiver, "this finding cannot be waived"));
    else if (waiver.until < at)
      aboutWaivers.push_back(aboutWaiver("waiver-expired", waiver, "it ended on " + dateText(waiver.until)));
    else if (mark(waiver, findings) == 0)
      aboutWaivers.push_back(aboutWaiver("waiver-unused", waiver, "it matches no finding"));
  }
  findings.insert(findings.end(), aboutWaivers.begin(), aboutWaivers.end());
}

} // namespace ImageCheck
