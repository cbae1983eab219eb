// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/text/printable.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Common::printable;

TEST(Printable, KeepsOrdinaryText) {
  for (const std::string text : {"", "plain ~", "Gr\xc3\xbc\xc3\x9f\x65 \xe2\x82\xac \xf0\x9f\x93\xa6", "\xc2\xa0"})
    EXPECT_EQ(printable(text), text);
}

TEST(Printable, EscapesWhatATerminalWouldObeyOrHide) {
  const std::pair<std::string, std::string> cases[] = {
      {"\x1b[31mred", "\\x1b[31mred"}, // a colour
      {"a\nb\r\t\x7f", "a\\x0ab\\x0d\\x09\\x7f"},
      {std::string("a\0b", 3), "a\\x00b"}, //
      {"\xc2\x9b"
       "31m",
       "\\xc2\\x9b31m"}, // the same colour, in one character
      {"\x9b", "\\x9b"}, // not UTF-8
      {"\xe2\x80\xae"
       "mpr",
       "\\xe2\\x80\\xaempr"},              // text from right to left
      {"\xef\xbb\xbf", "\\xef\\xbb\\xbf"}, // invisible
      {"\\x1b", "\\\\x1b"},                // a backslash of its own
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(printable(text), expected);
}

} // namespace
