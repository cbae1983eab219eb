// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/change_plan.h"
#include "tests/support/diagnostics/thrown.h"

#include <gtest/gtest.h>

namespace {

using Sandbox::Change;
using Sandbox::ChangePlan;
using Sandbox::planFrom;
using Sandbox::toBytes;

const ChangePlan plan = {
    .package = "sample",
    .record = "timestamp=1 event=U package=sample keyid=k",
    .newDirectories = {"opt", "opt/new"},
    .changes = {{.kind = Change::Kind::Add, .number = 0, .path = "opt/new/a file", .newInode = 3},
                {.kind = Change::Kind::Replace,
                 .number = 12,
                 .path = "opt/end",
                 .oldInode = 18446744073709551615U,
                 .newInode = 4},
                {.kind = Change::Kind::Delete, .number = 7, .path = "opt/line\nbreak", .oldInode = 5}},
    .obsoleteDirectories = {"opt/old"},
    .directoryModes = {{.path = "opt/new", .permissions = std::filesystem::perms(0750)}}};

TEST(ChangePlan, IsReadAsItWasWritten) {
  EXPECT_EQ(planFrom(toBytes(plan)), plan);
  EXPECT_EQ(planFrom(toBytes({})), ChangePlan());
}

TEST(ChangePlan, IsNotReadUnlessWhole) {
  const std::string bytes = toBytes(plan);
  for (std::size_t length = 0; length < bytes.size(); ++length)
    EXPECT_EQ(Support::errorOf([&] { planFrom(bytes.substr(0, length)); }),
              "Internal: The journal of the unfinished transaction is damaged");
}

std::string bytesOf(const std::vector<std::string>& texts) {
  std::string bytes;
  for (const std::string& text : texts)
    bytes.append(text).push_back('\0');
  return bytes;
}

TEST(ChangePlan, IsNotReadWithWhatItDoesNotKnow) {
  EXPECT_EQ(planFrom(bytesOf({"p", "r", "add", "1", "a", "0", "2", "end"})).changes.size(), 1);
  for (const std::string& bytes :
       {bytesOf({"p", "r", "move", "1", "a", "0", "2", "end"}), bytesOf({"p", "r", "add", "x", "a", "0", "2", "end"}),
        bytesOf({"p", "r", "add", "1x", "a", "0", "2", "end"}), bytesOf({"p", "r", "add", "1", "a", "0", "-2", "end"})})
    EXPECT_EQ(Support::errorOf([&] { planFrom(bytes); }),
              "Internal: The journal of the unfinished transaction is damaged");
}

} // namespace
