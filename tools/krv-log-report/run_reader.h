// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-log-report/model.h"
#include "tools/krv-log-report/parsed_line.h"
#include "tools/krv-log-report/place.h"

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace LogReport {

/// Gets the report, part by part.
class Sink {
public:
  virtual ~Sink() = default;
  virtual void takeRun(const Run& run) = 0;
  /// A line that is not from the tool, or is cut.
  virtual void takeUnknown(const Line& line) = 0;
};

/// Reads the lines of one run, and hands out the run when the log has no more lines. It keeps the rows in memory.
///
/// A text from a package or a service may contain line breaks and so look like lines of the tool. But the tool writes
/// one outcome for each entry. So an entry with two outcomes, or without the lines that belong to its outcome, is
/// ambiguous, and in a whole log the outcome of an entry that exists is never wrong.
class RunReader {
public:
  explicit RunReader(Sink& sink, Origin origin = {}) : m_sink(sink) { m_run.origin = std::move(origin); }
  RunReader(const RunReader&) = delete;
  RunReader& operator=(const RunReader&) = delete;

  const Origin& origin() const { return m_run.origin; }

  void add(Line line);
  /// The log has no more lines.
  void finish();

private:
  /// The lines since the last outcome.
  struct Block {
    std::string detail = {};
    std::optional<Message> last = {};
    std::optional<Reason> cause = {};
    std::string causePath = {};
  };

  void addToOpenPath(Line line);
  void giveUpOpenPath();
  void addUnknown(const Line& line);
  void take(const ParsedLine& parsed, const Line& line);
  void takeOutcome(const Place& place, const ParsedLine& parsed, const Line& line);
  void takeEnd(const Place& place, const ParsedLine& parsed, const Line& line);
  void addRow(Row row);
  void contradictCause();

  Sink& m_sink;
  Run m_run;
  std::unordered_map<std::string_view, Row*> m_rowOf;
  Block m_block;
  std::vector<Line> m_open; ///< lines whose quoted path has not ended
  bool m_hasEnded = false;
};

} // namespace LogReport
