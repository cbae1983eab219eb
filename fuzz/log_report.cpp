// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "fuzz/support.h"
#include "tools/krv-log-report/output.h"
#include "tools/krv-log-report/read_log.h"

#include <set>
#include <sstream>

namespace {

/// The name as the log shows it, with the quotation mark behind it.
std::string quotedEnd(const std::string& entry) {
  std::string text;
  for (const char character : entry) {
    if (character == '"' || character == '\\')
      text += '\\';
    text += character;
  }
  return text + '"';
}

class Checker : public LogReport::Sink {
public:
  explicit Checker(std::string_view log) : m_log(log) {}

  void takeRun(const LogReport::Run& run) override {
    std::set<std::string> entries;
    for (const LogReport::Row& row : run.rows) {
      Fuzz::require(entries.insert(row.entry).second, "an entry has one row in a run");
      Fuzz::require(m_log.starts_with('{') || m_log.find(quotedEnd(row.entry)) != m_log.npos, "the log has the entry");
      Fuzz::require(row.entry.find('/') == row.entry.npos && row.detail.size() <= 503, "the row has its form");
    }
    if (!run.rows.empty())
      Fuzz::accept();
    m_text->takeRun(run);
    m_json->takeRun(run);
  }

  void takeUnknown(const LogReport::Line& line) override { m_text->takeUnknown(line); }

private:
  std::string_view m_log;
  std::ostringstream m_output;
  std::unique_ptr<LogReport::Output> m_text = LogReport::Output::make(LogReport::Format::Text, m_output, m_output);
  std::unique_ptr<LogReport::Output> m_json = LogReport::Output::make(LogReport::Format::Json, m_output, m_output);
};

} // namespace

/// A log of any form gives rows for the entries that it names.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view log = Fuzz::begin(data, size);
  Checker checker(log);
  std::istringstream lines{std::string(log)};
  LogReport::readLog(lines, checker);
  return 0;
}
