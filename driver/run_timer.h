// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

/// Its destructor logs the whole seconds of monotonic time since construction, also during stack unwinding.
class RunTimer {
public:
  RunTimer() = default;
  RunTimer(const RunTimer&) = delete;
  RunTimer& operator=(const RunTimer&) = delete;
  ~RunTimer();

private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};
