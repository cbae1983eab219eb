// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/output_text.h"

#include "common/text/printable.h"
#include "common/text/utf8.h"
#include "tools/krv-image-check/catalogue.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/summary.h"

#include <algorithm>
#include <array>
#include <map>
#include <vector>

namespace ImageCheck {

namespace {

constexpr const char* red = "31";
constexpr const char* yellow = "33";
constexpr const char* green = "32";
constexpr const char* grey = "90";

std::string painted(Colour colour, const char* code, const std::string& text) {
  return colour == Colour::On ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
}

const char* colourOf(Severity severity) {
  return severity == Severity::Error ? red : severity == Severity::Warning ? yellow : grey;
}

const char* colourOf(Action action) {
  switch (action) {
  case Action::Install:
  case Action::Update:
    return green;
  case Action::Skip:
    return grey;
  default:
    return red;
  }
}

std::string line(const Finding& finding, Colour colour) {
  const Severity severity = explain(finding.id).severity;
  const std::string entry = finding.entry ? Common::printable(*finding.entry) : "image";
  const std::string label = painted(colour, finding.waivedBy ? grey : colourOf(severity),
                                    std::string(finding.waivedBy ? "waived " : "") + std::string(nameOf(severity)));
  const std::string waiver = finding.waivedBy ? " (waived: " + Common::printable(*finding.waivedBy) + ")" : "";
  return entry + ": " + label + ": " + finding.id + ": " + finding.message + waiver + "\n";
}

struct Cell {
  std::string text;
  const char* colour = nullptr;
};

std::size_t width(const std::string& text) {
  std::size_t count = 0;
  for (std::string_view rest = text; !rest.empty(); ++count)
    rest.remove_prefix(std::max<std::size_t>(Common::characterLength(rest), 1));
  return count;
}

/// Columns of equal width in each line, two spaces between them.
std::string table(const std::vector<std::vector<Cell>>& rows, Colour colour) {
  std::vector<std::size_t> widths;
  for (const std::vector<Cell>& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], width(row[column].text));
  }
  std::string text;
  for (const std::vector<Cell>& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      const auto& [content, code] = row[column];
      text += code != nullptr ? painted(colour, code, content) : content;
      if (column + 1 < row.size())
        text.append(widths[column] + 2 - width(content), ' ');
    }
    text += '\n';
  }
  return text;
}

std::string plan(const Report& report, Colour colour) {
  std::vector<std::vector<Cell>> rows{{{"ENTRY"}}};
  std::map<std::string, std::size_t> rowOf;
  for (const Scenario& scenario : report.scenarios) {
    const std::size_t column = rows.front().size();
    rows.front().push_back({Common::printable(scenario.name)});
    for (const Row& row : scenario.rows) {
      const auto [found, isNew] = rowOf.emplace(row.entry, rows.size());
      if (isNew)
        rows.push_back({{Common::printable(row.entry)}});
      std::vector<Cell>& cells = rows[found->second];
      cells.resize(std::max(cells.size(), column + 1));
      cells[column] = {std::string(nameOf(row.action)) + (row.reason.empty() ? "" : " (" + row.reason + ")"),
                       colourOf(row.action)};
    }
  }
  return rows.size() > 1 ? table(rows, colour) : "";
}

std::string counted(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string counts(const Report& report) {
  const Summary summary = summarize(report);
  return counted(report.packages.size(), "package") + ": " + counted(summary.errors, "error") + ", " +
         counted(summary.warnings, "warning") + ", " + counted(summary.notes, "note") +
         (summary.waived > 0 ? ", " + std::to_string(summary.waived) + " waived" : "");
}

/// "not checked: ID, ID (WHY); ID (WHY)"
std::string notChecked(const Report& report) {
  std::vector<std::pair<std::string, std::string>> groups; ///< reason and ids
  for (const NotChecked& check : report.notChecked) {
    const auto known = std::ranges::find(groups, check.why, &std::pair<std::string, std::string>::first);
    if (known == groups.end())
      groups.emplace_back(check.why, check.id);
    else
      known->second += ", " + check.id;
  }
  std::string text;
  for (const auto& [why, ids] : groups)
    text += (text.empty() ? "; not checked: " : "; ") + ids + " (" + Common::printable(why) + ")";
  return text;
}

std::string wrapped(std::string_view label, std::string_view text) {
  constexpr std::size_t longest = 80;
  std::string result(label);
  std::size_t column = label.size();
  const std::string indentation(label.size(), ' ');
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    if (column > label.size() && column + 1 + word.size() > longest) {
      result += "\n" + indentation;
      column = label.size();
    } else if (column > label.size()) {
      result += ' ';
      ++column;
    }
    result += word;
    column += word.size();
  }
  return result + "\n";
}

std::string text(const Explanation& explanation) {
  const std::string severity =
      std::string(nameOf(explanation.severity)) + (explanation.canBeWaived ? "" : ", cannot be waived");
  return std::string(explanation.id) + " (" + severity + ")\n" + wrapped("  ", explanation.title) +
         wrapped("  On the device: ", explanation.consequence) + wrapped("  What to do:    ", explanation.remedy);
}

} // namespace

std::string toText(const Report& report, Colour colour) {
  std::string findings;
  for (const Finding& finding : report.findings)
    findings += line(finding, colour);
  std::string text;
  for (const std::string& part : {findings, plan(report, colour)})
    text += part.empty() ? "" : part + "\n";
  return text + counts(report) + notChecked(report) + "\n";
}

std::string explanationText(std::string_view id) {
  if (id != "all")
    return text(explain(id));
  std::string all;
  for (const Explanation& explanation : catalogue())
    all += (all.empty() ? "" : "\n") + text(explanation);
  return all;
}

} // namespace ImageCheck
