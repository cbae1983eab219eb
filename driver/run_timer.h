// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

/// The destructor logs how many whole seconds have passed since construction (monotonic clock), also during stack
/// unwinding.
class RunTimer {
public:
  RunTimer() = default;
  RunTimer(const RunTimer&) = delete;
  RunTimer& operator=(const RunTimer&) = delete;
  ~RunTimer();

private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};
