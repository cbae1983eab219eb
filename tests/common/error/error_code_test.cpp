// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error_code.h"
#include "tests/support/diagnostics/expected_errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <set>
#include <string>
#include <system_error>

namespace {

using Common::ErrorCode;
using Common::make_error_code;
using Support::expectedErrors;

TEST(ErrorCode, HasTheNumbersSharedWithTheService) {
  ASSERT_EQ(expectedErrors.size(), 31U);
  for (const auto& expected : expectedErrors)
    EXPECT_EQ(static_cast<int>(expected.code), expected.value) << expected.dbusName;
}

TEST(ErrorCode, HasTheMessageOfItsCategory) {
  for (const auto& expected : expectedErrors)
    EXPECT_EQ(make_error_code(expected.code).message(), expected.message) << expected.value;
}

TEST(ErrorCategory, HasTheMessageOfInternalForUnassignedNumbers) {
  std::set<int> known;
  for (const auto& expected : expectedErrors)
    known.insert(expected.value);
  for (int value = -100; value <= 100; ++value) {
    if (!known.contains(value)) {
      EXPECT_EQ(Common::errorCategory().message(value), "Internal error occurred") << value;
    }
  }
  EXPECT_EQ(Common::errorCategory().message(std::numeric_limits<int>::max()), "Internal error occurred");
  EXPECT_EQ(Common::errorCategory().message(std::numeric_limits<int>::min()), "Internal error occurred");
}

TEST(ErrorCategory, HasItsName) {
  EXPECT_STREQ(Common::errorCategory().name(), "Common::ErrorCategory");
}

TEST(ErrorCategory, IsASingleton) {
  EXPECT_EQ(&Common::errorCategory(), &Common::errorCategory());
  EXPECT_EQ(&make_error_code(ErrorCode::Internal).category(), &Common::errorCategory());
}

TEST(ErrorCode, EqualsItselfOnly) {
  EXPECT_EQ(make_error_code(ErrorCode::Filesystem), make_error_code(ErrorCode::Filesystem));
  EXPECT_NE(make_error_code(ErrorCode::Filesystem), make_error_code(ErrorCode::Internal));
}

TEST(ErrorCode, NeverEqualsAnErrnoOfTheSameNumber) {
  static_assert(EPERM == 1 && ENOENT == 2);
  EXPECT_NE(make_error_code(ErrorCode::Filesystem), std::error_code(EPERM, std::generic_category()));
  EXPECT_NE(make_error_code(ErrorCode::Filesystem), std::error_code(EPERM, std::system_category()));
  EXPECT_FALSE(make_error_code(ErrorCode::Filesystem) == std::errc::operation_not_permitted);
  EXPECT_FALSE(make_error_code(ErrorCode::Internal) == std::errc::no_such_file_or_directory);
}

TEST(ErrorCode, ConvertsToAStandardErrorCode) {
  const std::error_code code = ErrorCode::FileConflict;
  EXPECT_EQ(code.value(), 28);
  EXPECT_TRUE(code == ErrorCode::FileConflict);
}

TEST(ErrorCode, NoneIsFalse) {
  EXPECT_FALSE(make_error_code(ErrorCode::None));
  EXPECT_TRUE(make_error_code(ErrorCode::Filesystem));
}

// Initialisers of other static objects may throw and describe errors.
const std::string messageBeforeMain = make_error_code(ErrorCode::BadPackageVersion).message();

TEST(ErrorCode, HasItsMessageBeforeMain) {
  EXPECT_EQ(messageBeforeMain, "The package version has an incorrect value");
}

} // namespace
