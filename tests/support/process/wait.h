// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <thread>

namespace Support {

/// Calls `condition` until it returns true; false if it does not within the deadline.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::seconds deadline = std::chrono::seconds(60)) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

} // namespace Support
