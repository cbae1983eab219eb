// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

/// Logs, when it goes out of scope, the whole seconds of monotonic time that have passed since it was made; also while
/// an exception unwinds the run.
class RunTimer {
public:
  RunTimer() = default;
  RunTimer(const RunTimer&) = delete;
  RunTimer& operator=(const RunTimer&) = delete;
  ~RunTimer();

private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};
