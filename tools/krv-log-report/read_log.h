// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-log-report/run_reader.h"

#include <iosfwd>

namespace LogReport {

/// Reads a log to its end and hands its runs to `sink`: the lines of one run, as the tool writes them, or, if the first
/// line begins with
/// "{", the lines of `journalctl --output=json`, of which only those of the tool's unit count. Throws
/// std::runtime_error if reading fails.
void readLog(std::istream& input, Sink& sink);

} // namespace LogReport
