// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/json.h"

#include <gtest/gtest.h>

namespace {

TEST(Json, WritesTexts) {
  EXPECT_EQ(Json::text(""), R"("")");
  EXPECT_EQ(Json::text("a/b c"), R"("a/b c")");
  EXPECT_EQ(Json::text("\"\\\n\t\x1f\x7f"), R"("\"\\\u000a\u0009\u001f\u007f")");
  EXPECT_EQ(Json::text(std::string_view("\0", 1)), R"("\u0000")");
}

TEST(Json, KeepsUtf8) {
  for (const char* text : {"\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80", "\xef\xbf\xbf",
                           "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"})
    EXPECT_EQ(Json::text(text), '"' + std::string(text) + '"');
}

TEST(Json, ReplacesEachByteThatIsNoUtf8) {
  const std::string mark = "\\ufffd";
  for (const std::string_view text : {"\x80", "\xc1", "\xff", "\xc3", "\xe2", "\xf0"})
    EXPECT_EQ(Json::text(text), '"' + mark + '"');
  for (const std::string_view text : {"\xc0\x80", "\xe2\x82", "\xf5\x80"})
    EXPECT_EQ(Json::text(text), '"' + mark + mark + '"');
  for (const std::string_view text : {"\xe0\x9f\xbf", "\xed\xa0\x80", "\xf0\x8f\xbf"})
    EXPECT_EQ(Json::text(text), '"' + mark + mark + mark + '"');
  EXPECT_EQ(Json::text("\xf4\x90\x80\x80"), '"' + mark + mark + mark + mark + '"');
  EXPECT_EQ(Json::text("a\xffz"), "\"a" + mark + "z\"");
}

TEST(Json, WritesArraysAndObjects) {
  EXPECT_EQ(Json::array({}), "[]");
  EXPECT_EQ(Json::array({"1", "[]"}), "[1,[]]");
  EXPECT_EQ(Json::object({}), "{}");
  EXPECT_EQ(Json::object({{"a\"", "1"}, {"b", "null"}}), R"({"a\"":1,"b":null})");
}

} // namespace
