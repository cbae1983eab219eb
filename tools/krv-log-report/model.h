// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

/// The report over a log: one row per package, and one end per run.
namespace LogReport {

enum class Outcome {
  Installed,
  Failed,
  Skipped,
  Unknown,   ///< the log ends before the outcome
  Ambiguous, ///< the log contradicts itself about this entry
};

/// Why a package was skipped or not installed. The names are those of krv-image-check where it has the same reason.
enum class Reason { None, Unreadable, RemovedByUser, NotNewer, DeveloperMismatch, ServiceError };

enum class End {
  Complete,
  NoService, ///< no package was tried
  NoList,    ///< no package was tried
  Aborted,   ///< by an error that is no package's
  Cut,       ///< the log has no end of the run
  Ambiguous, ///< the log goes on after the end of the run
};

/// Microseconds since 1970, as the journal has them.
using Time = std::optional<std::uint64_t>;

struct Row {
  std::string entry; ///< the file name; may have any bytes but "/"
  Outcome outcome;
  Reason reason;
  std::string detail; ///< the other lines of the entry, without marks; shortened
  Time time;
};

/// The ids of the journal; empty if the log has none.
struct Origin {
  std::string machine;
  std::string boot;
  std::string invocation;

  bool operator==(const Origin&) const = default;
};

struct Run {
  Origin origin = {};
  std::deque<Row> rows = {}; ///< one for each entry; references to rows stay valid
  End end = End::Cut;
  std::optional<std::uint64_t> seconds = {};
  std::string detail = {}; ///< why the run ended early
  Time time = {};          ///< of the last line
};

/// One line of the log, without its line break.
struct Line {
  std::size_t number; ///< in the input, from 1
  std::string text;
  Time time = {};
};

} // namespace LogReport
