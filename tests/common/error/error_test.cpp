// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"

#include <gtest/gtest.h>

#include <string>
#include <system_error>

namespace {

using Common::Error;
using Common::ErrorCode;
using Common::make_error_code;

TEST(Error, ShowsOnlyTheMessageOfTheThrower) {
  const Error error(make_error_code(ErrorCode::Filesystem), "Couldn't create directory: /x");
  EXPECT_STREQ(error.what(), "Couldn't create directory: /x");
}

TEST(Error, KeepsTheMessageOfItsCode) {
  const Error error(make_error_code(ErrorCode::Filesystem), "Couldn't create directory: /x");
  EXPECT_EQ(error.code().message(), "Filesystem error occurred");
  EXPECT_STREQ(error.code().category().name(), "Common::ErrorCategory");
}

TEST(Error, IsCaughtAsASystemErrorWithItsOwnMessage) {
  try {
    throw Error(make_error_code(ErrorCode::BadPackageFileFormat), "mine");
  } catch (const std::system_error& error) {
    EXPECT_STREQ(error.what(), "mine");
    EXPECT_EQ(error.code(), ErrorCode::BadPackageFileFormat);
    EXPECT_STREQ(error.std::system_error::what(), "Failed to parse the package or read the required package data");
  }
}

TEST(Error, MayHaveAnEmptyMessage) {
  EXPECT_STREQ(Error(make_error_code(ErrorCode::Internal), std::string()).what(), "");
}

} // namespace
