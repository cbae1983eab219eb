// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/output_html.h"

#include "tools/krv-image-check/catalogue.h"
#include "tools/krv-image-check/html_certificates.h"
#include "tools/krv-image-check/html_plan.h"
#include "tools/krv-image-check/html_style.h"
#include "tools/krv-image-check/html_text.h"
#include "tools/krv-image-check/summary.h"

#include <algorithm>
#include <map>
#include <vector>

namespace ImageCheck {

namespace {

using Html::certificateSection;
using Html::classed;
using Html::counted;
using Html::element;
using Html::escaped;
using Html::escapedMessage;
using Html::planSection;
using Html::sectionHeading;

const char* colourOf(Severity severity) {
  switch (severity) {
  case Severity::Error:
    return "bad";
  case Severity::Warning:
    return "warn";
  case Severity::Note:
    break;
  }
  return "info";
}

std::string verdict(const Summary& summary) {
  const char* colour = "good";
  std::string sign = "\u2713";
  std::string text = "No mistakes found";
  std::string detail = "What was checked lets every device use this image as planned below.";
  if (summary.errors > 0) {
    colour = "bad";
    sign = "\u00d7";
    text = counted(summary.errors, "error") + ": do not ship this image";
    detail = "Some devices would not get what the image is meant to give them.";
  } else if (summary.warnings > 0) {
    colour = "warn";
    sign = "!";
    text = "No errors, " + counted(summary.warnings, "warning");
    detail = "Decide about each warning below before the image ships.";
  }
  return classed("div", "verdict " + std::string(colour) + "-back",
                 element("span", "class=\"sign " + std::string(colour) + "\" aria-hidden=\"true\"", sign) +
                     element("div", "", classed("strong", colour, text) + detail));
}

std::string countItem(std::size_t number, std::string_view name, const char* colour) {
  return element("li", "",
                 element("b", number > 0 ? "class=\"" + std::string(colour) + "\"" : "", std::to_string(number)) +
                     element("span", "", name));
}

std::string navigation(const Report& report) {
  std::string links = "<a href=\"#findings\">Findings</a><a href=\"#plan\">What will happen</a>";
  if (!certificateSection(report).empty())
    links += "<a href=\"#certificates\">Certificates</a>";
  if (!report.notChecked.empty())
    links += "<a href=\"#not-checked\">Not checked</a>";
  if (!report.packages.empty())
    links += "<a href=\"#packages\">Packages</a>";
  return element("nav", "aria-label=\"Sections\"", links);
}

std::string heading(const Report& report, const Summary& summary) {
  const std::string facts = "Checked for " + dateText(report.at) + ", architecture " +
                            (report.architecture.empty() ? "unknown" : escaped(report.architecture)) + ", " +
                            counted(report.packages.size(), "package") + ", " +
                            counted(report.scenarios.size(), "scenario");
  return element(
      "header", "",
      element("div", "",
              classed("div", "label", "Image check") + element("h1", "", escaped(report.image)) +
                  classed("p", "soft", facts) + verdict(summary) +
                  classed("ul", "counts",
                          countItem(summary.errors, "errors", "bad") + countItem(summary.warnings, "warnings", "warn") +
                              countItem(summary.notes, "notes", "info") + countItem(summary.waived, "waived", "calm") +
                              countItem(report.notChecked.size(), "not checked", "warn")) +
                  navigation(report)));
}

using Group = std::vector<const Finding*>;

std::string place(const Finding& finding) {
  std::string text = finding.entry ? element("span", "class=\"entry mono\"", escaped(*finding.entry)) + ": " : "";
  text += escapedMessage(finding.message);
  if (finding.waivedBy)
    text += element("small", "class=\"soft\"", "<br>Waived: " + escaped(*finding.waivedBy));
  return element("li", "", text);
}

std::string findingCard(const Group& group) {
  const Explanation& explanation = explain(group.front()->id);
  const std::string colour = colourOf(explanation.severity);
  const std::string head = classed("span", "badge " + colour + " " + colour + "-back", nameOf(explanation.severity)) +
                           element("h3", "", escaped(explanation.title)) + classed("code", "id", explanation.id);
  std::string places;
  for (const Finding* finding : group)
    places += place(*finding);
  const std::string advice =
      element("div", "", element("dt", "", "On the device") + element("dd", "", escaped(explanation.consequence))) +
      element("div", "", element("dt", "", "What to do") + element("dd", "", escaped(explanation.remedy)));
  return classed("section", "finding card " + colour,
                 classed("div", "head", head) + classed("ul", "places", places) + classed("dl", "advice", advice)) +
         "\n";
}

enum class Waived { No, Yes };

/// The findings by their ids: errors first, then in the order of the catalogue.
std::vector<Group> groupsOf(const Report& report, Waived waived) {
  std::map<std::string_view, Group> byId;
  for (const Finding& finding : report.findings) {
    if (finding.waivedBy.has_value() == (waived == Waived::Yes))
      byId[finding.id].push_back(&finding);
  }
  std::vector<Group> groups;
  for (const Severity severity : {Severity::Error, Severity::Warning, Severity::Note}) {
    for (const Explanation& explanation : catalogue()) {
      const auto found = byId.find(explanation.id);
      if (explanation.severity == severity && found != byId.end())
        groups.push_back(found->second);
    }
  }
  return groups;
}

std::string cards(const std::vector<Group>& groups) {
  std::string html;
  for (const Group& group : groups)
    html += findingCard(group);
  return html;
}

std::string findingSection(const Report& report) {
  const std::vector<Group> open = groupsOf(report, Waived::No);
  const std::vector<Group> waived = groupsOf(report, Waived::Yes);
  std::string html = sectionHeading("findings", "Findings");
  if (open.empty())
    html += classed("p", "lead", "None.");
  html += cards(open);
  if (!waived.empty())
    html += element("details", "",
                    element("summary", "", "Waived: " + counted(summarize(report).waived, "finding")) + cards(waived));
  return html;
}

std::string notCheckedSection(const Report& report) {
  if (report.notChecked.empty())
    return "";
  std::string items;
  for (const NotChecked& check : report.notChecked)
    items += element("li", "", element("code", "", escaped(check.id)) + ": " + escaped(check.why));
  return sectionHeading("not-checked", "Not checked") + classed("p", "lead", "Mistakes of these kinds may be left.") +
         classed("ul", "plain card", items);
}

std::string packageRow(const Package& package) {
  const auto cell = [](const char* column, const std::string& content) {
    return element("td", "data-column=\"" + std::string(column) + "\"", content);
  };
  const std::string developer = package.developer
                                    ? escaped(package.developer->subject) +
                                          element("small", "class=\"mono\"", escaped(package.developer->identity.keyId))
                                    : "none";
  return element("tr", "",
                 element("th", "scope=\"row\"",
                         element("b", "", escaped(package.name)) + " " + escaped(package.version) +
                             element("small", "class=\"mono\"", escaped(package.entry))) +
                     cell("Architecture", escaped(package.architecture)) + cell("Developer", developer) +
                     cell("SHA-256", classed("span", "mono", escaped(package.sha256)))) +
         "\n";
}

std::string packageSection(const Report& report) {
  if (report.packages.empty())
    return "";
  std::string rows;
  for (const Package& package : report.packages)
    rows += packageRow(package);
  const std::string columns = "<thead><tr><th scope=\"col\">Package</th><th scope=\"col\">Architecture</th>"
                              "<th scope=\"col\">Developer</th><th scope=\"col\">SHA-256</th></tr></thead>\n";
  return sectionHeading("packages", "Packages") +
         element("details", "",
                 element("summary", "", "Show " + counted(report.packages.size(), "package")) +
                     classed("div", "card", element("table", "", columns + element("tbody", "", rows))));
}

} // namespace

std::string toHtml(const Report& report, std::string_view toolVersion) {
  const Summary summary = summarize(report);
  std::string html = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                     "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                     // Nothing may be loaded or run, even if a text were not escaped.
                     "<meta http-equiv=\"Content-Security-Policy\" "
                     "content=\"default-src 'none'; style-src 'unsafe-inline'\">\n";
  html += element("title", "", "Image check: " + escaped(report.image)) + "\n";
  html += element("style", "", htmlStyle) + "\n</head>\n<body>\n";
  html += heading(report, summary) + "\n<main>\n";
  html += findingSection(report) + "\n" + planSection(report) + "\n" + certificateSection(report) + "\n" +
          notCheckedSection(report) + "\n" + packageSection(report) + "\n</main>\n";
  html += element("footer", "", "krv-image-check " + escaped(toolVersion)) + "\n</body>\n</html>\n";
  return html;
}

} // namespace ImageCheck
