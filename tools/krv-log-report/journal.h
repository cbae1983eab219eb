// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-log-report/run_reader.h"

#include <map>
#include <memory>
#include <string>

namespace LogReport {

/// Reads what `journalctl --output=json` writes, also for many machines at once: each machine has its own run, and the
/// lines of a process are told apart from others by ids that only the journal can set. It keeps the last run of each
/// machine in memory. A run is not handed out at its last line, because a text may look like that line.
class Journal {
public:
  explicit Journal(Sink& sink) : m_sink(sink) {}

  /// `line` is one entry of the journal, as JSON.
  void add(const Line& line);
  void finish();

private:
  RunReader& readerOf(const Origin& origin);

  Sink& m_sink;
  std::map<std::string, std::unique_ptr<RunReader>> m_readers; ///< by machine
  std::map<std::string, Line> m_parts;                         ///< by machine: the begin of a line that was split
};

} // namespace LogReport
