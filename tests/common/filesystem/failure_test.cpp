// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/failure.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

namespace {

namespace Failure = Common::Filesystem::Failure;
using Support::CapturedLog;
using Support::errorOf;

TEST(Failure, LogsTheReasonAndThrowsTheMessage) {
  const CapturedLog log;
  EXPECT_EQ(errorOf([] { Failure::runOrThrow("Couldn't do it: /x", [] { throw std::runtime_error("reason"); }); }),
            "Filesystem: Couldn't do it: /x");
  EXPECT_EQ(log.text(), "[E] reason\n");
}

TEST(Failure, CoversEveryStandardException) {
  const CapturedLog log;
  EXPECT_EQ(errorOf([] { Failure::runOrThrow("message", []() -> int { throw std::bad_alloc(); }); }),
            "Filesystem: message");
  EXPECT_EQ(log.text(), "[E] std::bad_alloc\n");
}

TEST(Failure, ReturnsTheResultOfAnAction) {
  const CapturedLog log;
  EXPECT_EQ(*Failure::runOrThrow("message", [] { return std::make_unique<int>(42); }), 42);
  EXPECT_EQ(log.text(), "");
}

TEST(Failure, LogsTheReasonAndReturnsFalse) {
  const CapturedLog log;
  EXPECT_FALSE(Failure::runOrReturnFalse([]() -> bool { throw std::out_of_range("reason"); }));
  EXPECT_EQ(log.text(), "[E] reason\n");
}

TEST(Failure, ReturnsTheResultOfAQuery) {
  const CapturedLog log;
  EXPECT_TRUE(Failure::runOrReturnFalse([] { return true; }));
  EXPECT_FALSE(Failure::runOrReturnFalse([] { return false; }));
  EXPECT_EQ(log.text(), "");
}

TEST(Failure, PassesOnOtherExceptions) {
  const CapturedLog log;
  EXPECT_THROW(Failure::runOrThrow("message", [] { throw 42; }), int);
  EXPECT_THROW(static_cast<void>(Failure::runOrReturnFalse([]() -> bool { throw 42; })), int);
  EXPECT_EQ(log.text(), "");
}

} // namespace
