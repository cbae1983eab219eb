// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/html_certificates.h"

#include "tools/krv-image-check/html_text.h"
#include "tools/krv-image-check/summary.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <tuple>
#include <vector>

namespace ImageCheck::Html {

namespace {

using std::chrono::days;
using std::chrono::sys_days;

/// Certificates by the time of their end, with the packages that they sign.
using Certificates =
    std::map<std::tuple<std::chrono::sys_seconds, std::string, std::string, std::string>, std::vector<const Package*>>;

Certificates certificatesOf(const Report& report) {
  Certificates certificates;
  for (const Package& package : report.packages) {
    if (package.developer)
      certificates[{package.developer->notAfter, package.developer->subject, package.developer->issuer,
                    package.developer->identity.keyId}]
          .push_back(&package);
  }
  return certificates;
}

long daysUntil(std::chrono::sys_seconds end, sys_days day) {
  return std::chrono::floor<days>(end - day).count();
}

/// The days that the line shows: until the last end, but at least half a year and at most three years.
long horizonOf(const Certificates& certificates, sys_days day) {
  constexpr long halfAYear = 183;
  constexpr long threeYears = 1096;
  const long last = certificates.empty() ? 0 : daysUntil(std::get<0>(certificates.rbegin()->first), day);
  return std::clamp(last, halfAYear, threeYears);
}

/// A percentage with one digit behind the point, whatever the locale.
std::string percent(long part, long whole) {
  const long tenths = std::clamp(part * 1000 / whole, 0L, 1000L);
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + "%";
}

/// Marks at the beginnings of quarters if the line is short, else of half years.
std::string ticks(sys_days day, long horizon) {
  constexpr long narrow = 90; // per cent; a mark further right would not fit
  const unsigned step = horizon > 700 ? 6 : 3;
  std::string marks = element("span", "style=\"left:0\"", "today");
  const std::chrono::year_month_day date(day);
  for (auto month = date.year() / date.month() / 1;; month += std::chrono::months(1)) {
    const long offset = (sys_days(month) - day).count();
    if (offset * 100 > horizon * narrow)
      break;
    if (offset * 100 >= horizon * 8 && (static_cast<unsigned>(month.month()) - 1) % step == 0)
      marks +=
          element("span", "style=\"left:" + percent(offset, horizon) + "\"", dateText(sys_days(month)).substr(0, 7));
  }
  return "<li class=\"row axis\" aria-hidden=\"true\"><span></span>" + classed("div", "ticks", marks) +
         "<span></span></li>\n";
}

const char* colourOf(long remaining) {
  constexpr long soon = 90;
  return remaining < 0 ? "bad" : remaining <= soon ? "warn" : "good";
}

std::string remainingText(long remaining) {
  if (remaining < 0)
    return "expired " + counted(static_cast<std::size_t>(-remaining), "day") + " ago";
  return "ends in " + counted(static_cast<std::size_t>(remaining), "day");
}

std::string row(const Certificates::value_type& certificate, sys_days day, long horizon) {
  const auto& [end, subject, issuer, keyId] = certificate.first;
  const long remaining = daysUntil(end, day);
  const std::string who =
      element("b", "", escaped(subject)) + "<br>" +
      classed("span", "soft", "by " + escaped(issuer) + ", signs " + counted(certificate.second.size(), "package"));
  const std::string bar = element("div",
                                  "class=\"bar" + std::string(remaining > horizon ? " beyond" : "") +
                                      "\" style=\"width:" + percent(remaining, horizon) + "\"",
                                  "");
  const std::string when =
      element("b", "class=\"" + std::string(colourOf(remaining)) + "\"", remainingText(remaining)) + "<br>" +
      classed("span", "soft", dateText(std::chrono::floor<days>(end)));
  return classed(
             "li", "row",
             element("div", "", who) +
                 element("div", "class=\"track " + std::string(colourOf(remaining)) + "\" aria-hidden=\"true\"", bar) +
                 element("div", "", when)) +
         "\n";
}

} // namespace

std::string certificateSection(const Report& report) {
  const Certificates certificates = certificatesOf(report);
  if (certificates.empty())
    return "";
  const long horizon = horizonOf(certificates, report.at);
  std::string rows = ticks(report.at, horizon);
  for (const auto& certificate : certificates)
    rows += row(certificate, report.at, horizon);
  return sectionHeading("certificates", "Certificates until they end") +
         classed(
             "p", "lead",
             "A device that boots the image for the first time after a certificate has ended refuses its packages.") +
         classed("div", "time card", element("ul", "", rows));
}

} // namespace ImageCheck::Html
