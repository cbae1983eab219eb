// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/dbus_error.h"
#include "tests/support/diagnostics/expected_errors.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Common::ErrorCode;
using Common::fromCode;
using Common::fromDBusName;
using Support::expectedErrors;

TEST(DBusError, DescribesEveryCode) {
  for (const auto& expected : expectedErrors) {
    const Common::DBusErrorInfo info = fromCode(expected.code);
    EXPECT_EQ(info.code, expected.code);
    EXPECT_EQ(info.name, expected.dbusName);
    EXPECT_EQ(info.shortName, expected.shortName);
  }
}

TEST(DBusError, DescribesAnUnknownNumberAsInternalAndKeepsTheNumber) {
  for (const int value : {4, 7, 9, 12, 35, -1}) {
    const Common::DBusErrorInfo info = fromCode(static_cast<ErrorCode>(value));
    EXPECT_EQ(static_cast<int>(info.code), value);
    EXPECT_EQ(info.name, "velta.KRV.Error.Internal");
    EXPECT_EQ(info.shortName, "Internal");
  }
}

TEST(DBusError, FindsTheCodeOfEveryName) {
  for (const auto& expected : expectedErrors)
    EXPECT_EQ(fromDBusName(expected.dbusName), expected.code) << expected.dbusName;
}

class ForeignName : public testing::TestWithParam<const char*> {};

TEST_P(ForeignName, IsInternal) {
  EXPECT_EQ(fromDBusName(GetParam()), ErrorCode::Internal);
}

INSTANTIATE_TEST_SUITE_P(DBusError, ForeignName,
                         testing::Values("PackageNotExist", "velta.KRV.Error.packagenotexist", "", "velta.KRV.Error.",
                                         "velta.KRV.Error.PackageNotExist ", "velta.KRV.Error.PackageNotExis",
                                         "Velta.KRV.Error.PackageNotExist", "org.freedesktop.DBus.Error.Timeout",
                                         "org.freedesktop.DBus.Error.UnknownMethod", "org.sdbuscpp.Error"));

TEST(DBusError, ComparesExactlyTheView) {
  const std::string text = "velta.KRV.Error.NoneX";
  EXPECT_EQ(fromDBusName(std::string_view(text).substr(0, text.size() - 1)), ErrorCode::None);
  EXPECT_EQ(fromDBusName(std::string("velta.KRV.Error.None\0", 21)), ErrorCode::Internal);
}

const ErrorCode codeBeforeMain = fromDBusName("velta.KRV.Error.PackageNotExist");
const std::string nameBeforeMain = fromCode(ErrorCode::FileConflict).name;

TEST(DBusError, MapsCodesBeforeMain) {
  EXPECT_EQ(codeBeforeMain, ErrorCode::PackageNotExist);
  EXPECT_EQ(nameBeforeMain, "velta.KRV.Error.FileConflict");
}

} // namespace
