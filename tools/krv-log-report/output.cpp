// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-log-report/output.h"

#include "common/text/printable.h"
#include "common/text/utf8.h"
#include "tools/krv-log-report/names.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace LogReport {

namespace {

constexpr const char* program = "krv-log-report: ";
constexpr std::size_t mostNotices = 20;

using Cells = std::array<std::string, 4>;

/// The number of characters in UTF-8.
std::size_t widthOf(std::string_view text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; }));
}

Cells cellsOf(const Row& row) {
  return {Common::printable(row.entry), std::string(nameOf(row.outcome)), std::string(nameOf(row.reason)),
          Common::printable(row.detail)};
}

std::string counts(const Run& run) {
  std::string text = std::to_string(run.rows.size()) + (run.rows.size() == 1 ? " package" : " packages");
  const char* separator = ": ";
  for (const Outcome outcome :
       {Outcome::Installed, Outcome::Failed, Outcome::Skipped, Outcome::Unknown, Outcome::Ambiguous}) {
    const auto count = std::ranges::count(run.rows, outcome, &Row::outcome);
    if (count == 0)
      continue;
    text += separator + std::to_string(count) + " " + std::string(nameOf(outcome));
    separator = ", ";
  }
  return text;
}

std::string sentenceOf(End end) {
  switch (end) {
  case End::Complete:
    return "";
  case End::NoService:
    return "the service cannot be reached";
  case End::NoList:
    return "the pre-install directory cannot be listed";
  case End::Aborted:
    return "the run was aborted";
  case End::Cut:
    return "the log ends before the run";
  case End::Ambiguous:
    return "the log goes on after the end of the run; only the form of journalctl -o json may have several runs";
  }
  return "";
}

class TextOutput : public Output {
public:
  using Output::Output;

  void takeRun(const Run& run) override {
    writeHead(run);
    writeRows(run);
    output() << counts(run);
    if (run.seconds)
      output() << ", " << *run.seconds << (*run.seconds == 1 ? " second" : " seconds");
    if (const std::string sentence = sentenceOf(run.end); !sentence.empty())
      output() << "; " << sentence;
    if (!run.detail.empty())
      output() << ": " << Common::printable(run.detail);
    output() << '\n';
  }

private:
  void writeHead(const Run& run) {
    if (!m_isFirst)
      output() << '\n';
    m_isFirst = false;
    if (run.time)
      output() << timeText(run.time) << "  machine " << Common::printable(run.origin.machine) << "  boot "
               << Common::printable(run.origin.boot) << '\n';
  }

  void writeRows(const Run& run) {
    const Cells heads{"ENTRY", "OUTCOME", "REASON", "DETAIL"};
    std::array<std::size_t, 3> widths{};
    const auto widen = [&](const Cells& cells) {
      for (std::size_t column = 0; column < widths.size(); ++column)
        widths[column] = std::max(widths[column], widthOf(cells[column]));
    };
    widen(heads);
    for (const Row& row : run.rows)
      widen(cellsOf(row));
    if (!run.rows.empty())
      writeCells(heads, widths);
    for (const Row& row : run.rows)
      writeCells(cellsOf(row), widths);
  }

  void writeCells(const Cells& cells, const std::array<std::size_t, 3>& widths) {
    std::string line;
    for (std::size_t column = 0; column < widths.size(); ++column)
      line += cells[column] + std::string(widths[column] - widthOf(cells[column]) + 2, ' ');
    line += cells.back();
    line.erase(line.find_last_not_of(' ') + 1);
    output() << line << '\n';
  }

  bool m_isFirst = true;
};

/// Keeps the order of the members.
using Json = nlohmann::ordered_json;

Json textOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(Common::asUtf8(text));
}

std::string hexadecimal(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[static_cast<unsigned char>(byte) & 15];
  }
  return text;
}

void putOrigin(Json& object, const Run& run, Time time) {
  object["machine_id"] = textOrNull(run.origin.machine);
  object["boot_id"] = textOrNull(run.origin.boot);
  object["invocation_id"] = textOrNull(run.origin.invocation);
  object["time"] = textOrNull(timeText(time));
}

Json rowToJson(const Run& run, const Row& row) {
  Json object{{"type", "package"}, {"entry", Common::asUtf8(row.entry)}};
  if (Common::asUtf8(row.entry) != row.entry)
    object["entry_hex"] = hexadecimal(row.entry);
  object["outcome"] = nameOf(row.outcome);
  object["reason"] = textOrNull(std::string(nameOf(row.reason)));
  object["detail"] = textOrNull(row.detail);
  putOrigin(object, run, row.time);
  return object;
}

Json endToJson(const Run& run) {
  Json object{{"type", "run"}, {"end", nameOf(run.end)}, {"packages", run.rows.size()}, {"seconds", nullptr}};
  if (run.seconds)
    object["seconds"] = *run.seconds;
  object["detail"] = textOrNull(run.detail);
  putOrigin(object, run, run.time);
  return object;
}

class JsonOutput : public Output {
public:
  using Output::Output;

  void takeRun(const Run& run) override {
    for (const Row& row : run.rows)
      output() << rowToJson(run, row).dump() << '\n';
    output() << endToJson(run).dump() << '\n';
  }
};

} // namespace

std::unique_ptr<Output> Output::make(Format format, std::ostream& output, std::ostream& notices) {
  if (format == Format::Json)
    return std::make_unique<JsonOutput>(output, notices);
  return std::make_unique<TextOutput>(output, notices);
}

void Output::takeUnknown(const Line& line) {
  constexpr std::size_t longest = 200;
  if (++m_unknown <= mostNotices)
    m_notices << program << "line " << line.number
              << " is not a whole line of the tool: " << Common::printable(line.text.substr(0, longest))
              << (line.text.size() > longest ? "..." : "") << '\n';
}

void Output::finish() {
  if (m_unknown > mostNotices)
    m_notices << program << m_unknown - mostNotices << " more lines are not whole lines of the tool\n";
}

} // namespace LogReport
