// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/run_timer.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/process/process.h"

#include <gtest/gtest.h>

#include <stdexcept>

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
