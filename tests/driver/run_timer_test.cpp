// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/run_timer.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/process/wait.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>

namespace {

using Support::CapturedLog;

TEST(RunTimer, WritesItsLineAtTheEndOfItsScope) {
  const CapturedLog log;
  {
    const RunTimer timer;
    EXPECT_EQ(log.text(), "");
  }
  EXPECT_EQ(log.text(), "[I] Time spent for pre-installation: 0 seconds\n");
}

TEST(RunTimer, CountsOnlyWholeSeconds) {
  using std::chrono::milliseconds;
  std::string text;
  std::chrono::steady_clock::duration passed;
  do { // again if the machine was too busy
    const CapturedLog log;
    const auto begin = std::chrono::steady_clock::now();
    {
      const RunTimer timer;
      Support::waitUntil([&] { return std::chrono::steady_clock::now() - begin >= milliseconds(700); });
    }
    text = log.text();
    passed = std::chrono::steady_clock::now() - begin;
  } while (passed >= std::chrono::seconds(1));
  EXPECT_EQ(text, "[I] Time spent for pre-installation: 0 seconds\n");
}

TEST(RunTimer, WritesItsLineDuringStackUnwinding) {
  const CapturedLog log;
  EXPECT_THROW(
      {
        const RunTimer timer;
        throw std::runtime_error("x");
      },
      std::runtime_error);
  EXPECT_EQ(log.text(), "[I] Time spent for pre-installation: 0 seconds\n");
}

} // namespace
