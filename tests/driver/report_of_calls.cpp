// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/report_of_calls.h"

#include "tools/krv-log-report/names.h"
#include "tools/krv-log-report/read_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <vector>

namespace {

using LogReport::Outcome;
using Entries = std::set<std::string>;

/// Keeps what it gets.
class Rows : public LogReport::Sink {
public:
  void takeRun(const LogReport::Run& run) override { m_runs.push_back(run); }
  void takeUnknown(const LogReport::Line& line) override { m_unknown += line.text + "\n"; }

  const std::vector<LogReport::Run>& runs() const { return m_runs; }
  const std::string& unknown() const { return m_unknown; }

  Entries with(Outcome outcome) const {
    Entries entries;
    for (const LogReport::Run& run : m_runs)
      for (const LogReport::Row& row : run.rows)
        if (row.outcome == outcome)
          entries.insert(row.entry);
    return entries;
  }

private:
  std::vector<LogReport::Run> m_runs;
  std::string m_unknown;
};

Entries entriesOf(const std::vector<std::string>& paths) {
  Entries entries;
  for (const std::filesystem::path path : paths)
    entries.insert(path.filename());
  return entries;
}

Entries common(const Entries& some, const Entries& others) {
  Entries both;
  std::ranges::set_intersection(some, others, std::inserter(both, both.end()));
  return both;
}

} // namespace

void expectReportOfCalls(const std::string& log, const Support::ScriptedService::Installations& calls) {
  Rows report;
  std::istringstream lines(log);
  LogReport::readLog(lines, report);
  SCOPED_TRACE("the report for this log:\n" + log);

  EXPECT_LE(report.runs().size(), 1U);
  EXPECT_EQ(report.unknown(), "");
  EXPECT_EQ(report.with(Outcome::Ambiguous), Entries());
  EXPECT_EQ(report.with(Outcome::Unknown), Entries());
  const Entries asked = entriesOf(calls.asked);
  const Entries succeeded = entriesOf(calls.succeeded);
  EXPECT_EQ(report.with(Outcome::Installed), succeeded);
  EXPECT_EQ(common(report.with(Outcome::Skipped), asked), Entries());
  Entries offered = report.with(Outcome::Installed);
  offered.merge(report.with(Outcome::Failed));
  EXPECT_EQ(common(offered, asked), asked);
}
