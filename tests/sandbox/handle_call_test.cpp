// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"
#include "sandbox/handle_call.h"
#include "tests/sandbox/real_service.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/expected_errors.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>

namespace {

using Common::Error;

/// The log of a call that runs `work`, followed by the error that the caller gets.
std::string attended(const std::function<void()>& work) {
  const Support::CapturedLog log;
  const std::string error = busErrorOf([&] { Sandbox::handleCall("Call it", work); });
  return log.text() + error;
}

TEST(Attend, LogsACallThatSucceeds) {
  EXPECT_EQ(attended([] {}), "[I] Call it\nno error");
}

TEST(Attend, AnswersEveryErrorCodeByItsName) {
  for (const Support::ExpectedError& expected : Support::expectedErrors)
    EXPECT_EQ(attended([&] { throw Error(Common::make_error_code(expected.code), "Why"); }),
              std::string("[E] Call it: ") + expected.shortName + ": Why\n" + expected.dbusName + ": Why");
}

TEST(Attend, AnswersOtherExceptionsAsInternal) {
  const std::string internal = "[E] Call it: Internal: Why\nvelta.KRV.Error.Internal: Why";
  EXPECT_EQ(attended([] { throw std::runtime_error("Why"); }), internal);
  EXPECT_EQ(attended([] { throw Error(std::make_error_code(std::errc::no_such_file_or_directory), "Why"); }), internal);
  EXPECT_EQ(attended([] { throw Error(std::error_code(30, std::generic_category()), "Why"); }), internal);
  EXPECT_EQ(attended([] { throw std::bad_alloc(); }),
            "[E] Call it: Internal: std::bad_alloc\nvelta.KRV.Error.Internal: std::bad_alloc");
}

TEST(Attend, AnswersInUtf8) {
  EXPECT_EQ(attended([] { throw std::runtime_error("No \xff"); }),
            "[E] Call it: Internal: No \xff\nvelta.KRV.Error.Internal: No ?");
}

// A package may have a path of many megabytes, and the bus disconnects a service that sends it in an answer.
TEST(Attend, LimitsTheLengthOfAnAnswer) {
  const std::string told(4096, 'x');
  EXPECT_EQ(attended([] { throw std::runtime_error(std::string(1 << 20, 'x')); }),
            "[E] Call it: Internal: " + told + "\nvelta.KRV.Error.Internal: " + told);
}

} // namespace
