// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-log-report/names.h"

#include <array>
#include <ctime>

namespace LogReport {

std::string_view nameOf(Outcome outcome) {
  switch (outcome) {
  case Outcome::Installed:
    return "installed";
  case Outcome::Failed:
    return "failed";
  case Outcome::Skipped:
    return "skipped";
  case Outcome::Unknown:
    return "unknown";
  case Outcome::Ambiguous:
    return "ambiguous";
  }
  return "";
}

std::string_view nameOf(Reason reason) {
  switch (reason) {
  case Reason::None:
    return "";
  case Reason::Unreadable:
    return "Unreadable";
  case Reason::RemovedByUser:
    return "RemovedByUser";
  case Reason::NotNewer:
    return "NotNewer";
  case Reason::DeveloperMismatch:
    return "DeveloperMismatch";
  case Reason::ServiceError:
    return "ServiceError";
  }
  return "";
}

std::string_view nameOf(End end) {
  switch (end) {
  case End::Complete:
    return "complete";
  case End::NoService:
    return "no-service";
  case End::NoList:
    return "no-list";
  case End::Aborted:
    return "aborted";
  case End::Cut:
    return "cut";
  case End::Ambiguous:
    return "ambiguous";
  }
  return "";
}

std::string timeText(Time time) {
  constexpr std::uint64_t perSecond = 1'000'000;
  std::array<char, 40> text{};
  std::tm parts{};
  const auto seconds = static_cast<std::time_t>(time.value_or(0) / perSecond);
  if (!time || gmtime_r(&seconds, &parts) == nullptr)
    return "";
  const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  const std::string fraction = std::to_string(*time % perSecond + perSecond).substr(1);
  return std::string(text.data(), size) + "." + fraction + "Z";
}

} // namespace LogReport
