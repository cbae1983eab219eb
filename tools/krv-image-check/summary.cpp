// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/summary.h"

#include "common/rpm/sha256.h"
#include "tools/krv-image-check/catalogue.h"

#include <array>
#include <cstdio>

namespace ImageCheck {

namespace {

std::size_t& countOf(Severity severity, Summary& summary) {
  switch (severity) {
  case Severity::Error:
    return summary.errors;
  case Severity::Warning:
    return summary.warnings;
  case Severity::Note:
    break;
  }
  return summary.notes;
}

} // namespace

Summary summarize(const Report& report) {
  Summary summary;
  for (const Finding& finding : report.findings)
    ++(finding.waivedBy ? summary.waived : countOf(explain(finding.id).severity, summary));
  return summary;
}

std::string fingerprintOf(const Finding& finding) {
  constexpr std::size_t digits = 32;
  Common::Rpm::Sha256 digest;
  // A name cannot contain the null character, so different findings have different texts.
  digest.add(finding.id);
  digest.add(std::string_view("\0", 1));
  digest.add(finding.entry ? "/" + *finding.entry : "");
  digest.add(std::string_view("\0", 1));
  digest.add(finding.about);
  return digest.digits().substr(0, digits);
}

std::string_view nameOf(Action action) {
  switch (action) {
  case Action::Install:
    return "install";
  case Action::Update:
    return "update";
  case Action::Skip:
    return "skip";
  case Action::Refused:
    return "refused";
  case Action::Unreadable:
    break;
  }
  return "unreadable";
}

std::string dateText(std::chrono::sys_days day) {
  const std::chrono::year_month_day date(day);
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return text.data();
}

std::string timeText(std::chrono::sys_seconds time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::hh_mm_ss clock(time - day);
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "T%02ld:%02ld:%02ldZ", static_cast<long>(clock.hours().count()),
                static_cast<long>(clock.minutes().count()), static_cast<long>(clock.seconds().count()));
  return dateText(day) + text.data();
}

} // namespace ImageCheck
