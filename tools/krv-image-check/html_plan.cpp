// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/html_plan.h"

#include "common/error/dbus_error.h"
#include "common/error/error_code.h"
#include "tools/krv-image-check/html_text.h"
#include "tools/krv-image-check/summary.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

namespace ImageCheck::Html {

namespace {

/// How an action looks. The sign and the word carry the meaning; the colour only repeats it.
struct Look {
  Action action;
  const char* cssClass;
  const char* sign;
  const char* word;
};

constexpr auto looks = std::to_array<Look>({{Action::Install, "good", "+", "installed"},
                                            {Action::Update, "info", "\u2191", "updated"},
                                            {Action::Skip, "calm", "\u2013", "skipped"},
                                            {Action::Refused, "bad", "\u00d7", "refused"},
                                            {Action::Unreadable, "bad", "?", "unreadable"}});

const Look& lookOf(Action action) {
  return *std::ranges::find(looks, action, &Look::action);
}

/// The reason of an action, for the reader of the page; empty if the action says enough.
std::string reasonText(const std::string& reason) {
  static const std::map<std::string_view, const char*> texts = {
      {"NotInstalled", ""},
      {"Update", ""},
      {"", "the tool cannot read it"},
      {"NotNewer", "not newer than the installed one"},
      {"RemovedByUser", "the user has removed it"},
      {"DeveloperMismatch", "the installed one is from another developer"},
      {"DeveloperUnknown", "the developer of the installed one is unknown"},
      {"ListingFailed", "the directory cannot be listed"}};
  const auto known = texts.find(reason);
  if (known != texts.end())
    return known->second;
  const Common::DBusErrorInfo none = Common::fromCode(Common::ErrorCode::None);
  const std::string prefix = none.name.substr(0, none.name.size() - none.shortName.size());
  return make_error_code(Common::fromDBusName(prefix + reason)).message();
}

std::string signOf(const Look& look) {
  return element("span", "class=\"sign\" aria-hidden=\"true\"", look.sign);
}

std::string columnName(const std::string& scenario) {
  constexpr std::string_view update = "update:";
  if (scenario == "first-boot")
    return "First boot";
  if (scenario == "device")
    return "The given device";
  return scenario.starts_with(update) ? "Update from " + escaped(scenario.substr(update.size())) : escaped(scenario);
}

std::string cell(const Scenario& scenario, const std::string& entry) {
  const std::string column = "data-column=\"" + columnName(scenario.name) + "\"";
  const auto row = std::ranges::find(scenario.rows, entry, &Row::entry);
  if (row == scenario.rows.end())
    return element("td", column, "");
  const Look& look = lookOf(row->action);
  const std::string reason = reasonText(row->reason);
  const std::string colours = " class=\"" + std::string(look.cssClass) + " " + look.cssClass + "-back\"";
  return element("td", column + colours,
                 signOf(look) + element("b", "", look.word) +
                     (reason.empty() ? "" : element("small", "", escaped(reason))));
}

std::string rowHeading(const Report& report, const Row& row) {
  const auto package = std::ranges::find(report.packages, row.entry, &Package::entry);
  const std::string file = element("small", "class=\"mono\"", escaped(row.entry));
  if (package == report.packages.end())
    return element("th", "scope=\"row\"", element("b", "", "not a package") + file);
  return element("th", "scope=\"row\"",
                 element("b", "", escaped(package->name)) + " " + escaped(package->version) + file);
}

std::string table(const Report& report) {
  std::string heading = element("th", "scope=\"col\"", "Package");
  for (const Scenario& scenario : report.scenarios)
    heading += element("th", "scope=\"col\"", columnName(scenario.name));
  std::string body;
  for (const Row& row : report.scenarios.front().rows) {
    std::string cells = rowHeading(report, row);
    for (const Scenario& scenario : report.scenarios)
      cells += cell(scenario, row.entry);
    body += element("tr", "", cells) + "\n";
  }
  return element("div", "class=\"card\"",
                 element("table", "class=\"plan\"",
                         element("thead", "", element("tr", "", heading)) + "\n" + element("tbody", "", body)));
}

std::string legend() {
  std::string items;
  for (const Look& look : looks)
    items += element("span", "", classed("span", look.cssClass, signOf(look)) + look.word);
  return classed("div", "legend", items);
}

std::string endState(const Scenario& scenario) {
  std::string items;
  for (const InstalledState& package : scenario.endState)
    items +=
        element("li", "",
                element("b", "", escaped(package.name)) + " " + escaped(package.version) + " " +
                    classed("span", "soft mono", package.keyId.empty() ? "developer unknown" : escaped(package.keyId)));
  const std::string summary =
      columnName(scenario.name) + ": the device ends with " + counted(scenario.endState.size(), "package");
  return element("details", "", element("summary", "", summary) + classed("ul", "plain card", items));
}

} // namespace

std::string planSection(const Report& report) {
  std::string html = sectionHeading("plan", "What will happen");
  if (report.scenarios.empty() || report.scenarios.front().rows.empty())
    return html + element("p", "class=\"lead\"", "The image has no entries that a device would look at.");
  html += classed("p", "lead", "Each column is a device at its next boot, decided by the rules of the device itself.");
  html += table(report) + legend();
  for (const Scenario& scenario : report.scenarios)
    html += endState(scenario);
  return html;
}

} // namespace ImageCheck::Html
