// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/change_plan.h"

#include <gtest/gtest.h>

namespace {

using Sandbox::Change;
using Sandbox::ChangePlan;
using Sandbox::planFrom;
using Sandbox::toBytes;

const ChangePlan plan = {
    .package = "sample",
    .record = "timestamp=1 event=U package=sample keyid=k",
    .entryBefore = std::string("any bytes\0end\0", 14),
    .entryAfter = "",
    .newDirectories = {"opt", "opt/new"},
    .changes = {{.kind = Change::Kind::Add, .number = 0, .path = "opt/new/a file", .newInode = 3},
                {.kind = Change::Kind::Replace,
                 .number = 12,
                 .path = "opt/end",
                 .oldInode = 18446744073709551615U,
                 .newInode = 4},
                {.kind = Change::Kind::Delete, .number = 7, .path = "opt/line\nbreak", .oldInode = 5}},
    .obsoleteDirectories = {"opt/old"},
    .directoryModes = {
        {.path = "opt/new", .permissions = std::filesystem::perms(0750)},
        {.path = "opt", .permissions = std::filesystem::perms(0755), .earlier = std::filesystem::perms(01777)}}};

TEST(ChangePlan, IsReadAsItWasWritten) {
  EXPECT_EQ(planFrom(toBytes(plan)), plan);
  EXPECT_EQ(planFrom(toBytes({})), ChangePlan());
}

TEST(ChangePlan, IsNotReadUnlessWhole) {
  const std::string bytes = toBytes(plan);
  for (std::size_t length = 0; length < bytes.size(); ++length)
    EXPECT_EQ(planFrom(bytes.substr(0, length)), std::nullopt) << length;
  EXPECT_EQ(planFrom(bytes + '\0'), std::nullopt);
}

TEST(ChangePlan, IsNotReadWithZerosInIt) {
  const std::string bytes = toBytes(plan);
  for (std::size_t first = 0; first < bytes.size(); ++first) {
    for (std::size_t end = first + 1; end <= bytes.size(); ++end) {
      const std::string torn = bytes.substr(0, first) + std::string(end - first, '\0') + bytes.substr(end);
      EXPECT_TRUE(torn == bytes || !planFrom(torn)) << first << " to " << end;
    }
  }
}

TEST(ChangePlan, IsNotReadWithAnyByteChanged) {
  const std::string bytes = toBytes(plan);
  for (std::size_t place = 0; place < bytes.size(); ++place) {
    std::string torn = bytes;
    torn[place] = static_cast<char>(torn[place] ^ 1);
    EXPECT_EQ(planFrom(torn), std::nullopt) << place;
  }
}

/// The texts with a zero byte behind each, and then their checksum as the journal has it.
std::string bytesOf(const std::vector<std::string>& texts) {
  std::string bytes;
  for (const std::string& text : texts)
    bytes.append(text).push_back('\0');
  std::uint64_t sum = 14695981039346656037U;
  for (const char byte : bytes)
    sum = (sum ^ static_cast<unsigned char>(byte)) * 1099511628211U;
  return bytes + std::to_string(sum) + '\0';
}

TEST(ChangePlan, IsNotReadWithWhatItDoesNotKnow) {
  EXPECT_EQ(planFrom(bytesOf({"p", "r", "add", "1", "a", "0", "2", "end"})).value().changes.size(), 1);
  for (const std::string& bytes :
       {bytesOf({"p", "r", "move", "1", "a", "0", "2", "end"}), bytesOf({"p", "r", "add", "x", "a", "0", "2", "end"}),
        bytesOf({"p", "r", "add", "1x", "a", "0", "2", "end"}), bytesOf({"p", "r", "add", "1", "a", "0", "-2", "end"}),
        bytesOf({"p", "r", "before", "18446744073709551615", "end"}), bytesOf({"p", "r", "before", "20", "end"})})
    EXPECT_EQ(planFrom(bytes), std::nullopt);
}

} // namespace
