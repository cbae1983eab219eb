// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/text/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Common::asUtf8;

TEST(Utf8, KeepsValidText) {
  for (const std::string text :
       {"", "plain", "\x7f", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80", "\xef\xbf\xbf",
        "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf", "Gr\xc3\xbc\xc3\x9f\x65 \xe2\x82\xac \xf0\x9f\x93\xa6\n"})
    EXPECT_EQ(asUtf8(text), text);
  EXPECT_EQ(asUtf8(std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(Utf8, ReplacesEachInvalidByteByAQuestionMark) {
  const std::pair<std::string, std::string> cases[] = {
      {"\x80", "?"},                           // a continuation byte without a first byte
      {"a\xff\xfez", "a??z"},                  // never part of a character
      {"\xc3", "?"},                           // truncated
      {"\xc3(", "?("},                         // truncated; the next character stays
      {"\xe2\x82", "??"},                      //
      {"\xf0\x9f\x93\xc3\xbc", "???\xc3\xbc"}, //
      {"\xc0\x80", "??"},                      // longer than necessary
      {"\xc1\xbf", "??"},                      //
      {"\xe0\x9f\xbf", "???"},                 //
      {"\xf0\x8f\xbf\xbf", "????"},            //
      {"\xed\xa0\x80", "???"},                 // half of a surrogate pair
      {"\xf4\x90\x80\x80", "????"},            // above the last code point
      {"\xf5\x80\x80\x80", "????"},            //
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(asUtf8(text), expected);
}

} // namespace
