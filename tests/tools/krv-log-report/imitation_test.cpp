// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-log-report/described.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

/// Writes random logs as the tool does, in which every text from elsewhere tries to look like lines of the tool.
class ImitatedLog {
public:
  explicit ImitatedLog(unsigned seed) : m_random(seed) {
    for (const std::string entry : {"a", "b c", "d\"", "e\\", "f"})
      add(entry);
    m_log += timeLine;
  }

  const std::string& log() const { return m_log; }
  /// The row of each entry, without its detail.
  const std::map<std::string, std::string>& rows() const { return m_rows; }

private:
  std::size_t below(std::size_t limit) { return m_random() % limit; }

  std::string anyEntry() {
    static const std::vector<std::string> entries = {"a", "b c", "d\"", "e\\", "f", "ghost"};
    return entries[below(entries.size())];
  }

  /// One or more lines of the tool, or parts of them.
  std::string anyLines() {
    switch (below(12)) {
    case 0:
      return installed(anyEntry());
    case 1:
      return failed("No", anyEntry());
    case 2:
      return notNewer(anyEntry());
    case 3:
      return unreadable("Bad", anyEntry());
    case 4:
      return skipped(anyEntry());
    case 5:
      return timeLine;
    case 6:
      return "[E] x\n[E] Failed to create dbus proxy for KRV service\n";
    case 7:
      return "[E] x\n[E] y\n[E] Failed to get a list of packages to pre-install\n";
    case 8:
      return "[E] Package installation error: x\n";
    case 9:
      return "[E] Failed to query information about installed package: x\n";
    case 10:
      return "x\n";
    default:
      return "\n";
    }
  }

  /// A text with line breaks, but not at its end. Some lines are cut at their begin or end.
  std::string text() {
    std::string lines;
    for (std::size_t count = below(5); count > 0; --count) {
      const std::string more = anyLines();
      const std::size_t begin = below(4) == 0 ? below(more.size()) : 0;
      lines += more.substr(begin, below(4) == 0 ? below(more.size()) : more.npos);
    }
    if (lines.ends_with('\n'))
      lines.pop_back();
    return below(3) == 0 ? lines : "x" + lines;
  }

  void add(const std::string& entry) {
    if (below(3) == 0)
      m_log += "[E] " + text() + "\n[E] Failed to query information about installed package: " + text() + "\n";
    if (below(5) == 0)
      m_log += "[E] Failed to parse rpm package version: " + text() + "\n";
    switch (below(4)) {
    case 0:
      m_log += installed(entry);
      m_rows[entry] = "installed";
      break;
    case 1:
      m_log += failed(text(), entry);
      m_rows[entry] = "failed (ServiceError)";
      break;
    case 2:
      m_log += notNewer(entry);
      m_rows[entry] = "skipped (NotNewer)";
      break;
    case 3:
      m_log += unreadable(text(), entry);
      m_rows[entry] = "skipped (Unreadable)";
      break;
    }
  }

  std::mt19937 m_random;
  std::string m_log;
  std::map<std::string, std::string> m_rows;
};

/// The rows of a report, without their details.
std::map<std::string, std::string> rowsOf(const std::string& report, const ImitatedLog& log) {
  std::map<std::string, std::string> rows;
  std::istringstream lines(report);
  for (std::string line; std::getline(lines, line);)
    for (const auto& [entry, row] : log.rows())
      if (line.starts_with(entry + ": "))
        rows[entry] = line.substr(entry.size() + 2, line.find(':', entry.size() + 2) - entry.size() - 2);
  return rows;
}

TEST(LogReportImitation, IsNeverWrongAboutAnEntryThatExists) {
  std::size_t certain = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    const ImitatedLog log(seed);
    const std::string report = described(log.log());
    SCOPED_TRACE("seed " + std::to_string(seed) + ":\n" + log.log() + "gives\n" + report);
    const auto rows = rowsOf(report, log);
    ASSERT_EQ(rows.size(), log.rows().size());
    for (const auto& [entry, row] : rows) {
      ASSERT_TRUE(row == log.rows().at(entry) || row == "ambiguous") << entry;
      certain += row == "ambiguous" ? 0U : 1U;
    }
  }
  EXPECT_GT(certain, 5000u);
}

} // namespace
