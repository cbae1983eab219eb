// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/script_test.h"

#include "tests/support/process/wait.h"

namespace fs = std::filesystem;

std::vector<std::string> ScriptTest::script(const std::string& name, const std::vector<std::string>& arguments) {
  std::vector<std::string> command{KRV_SOURCE_DIRECTORY "/sandbox/" + name, KRV_BINARY_DIRECTORY};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

void ScriptTest::expectNothingLeft() const {
  EXPECT_TRUE(fs::is_empty(temporary()));
  // If only the script gets the signal, a program that it has just started, such as dirname, ends by itself.
  Support::waitUntil([this] { return processes().empty(); }, std::chrono::seconds(10));
  EXPECT_EQ(processes(), std::vector<std::string>());
}

std::vector<std::string> ScriptTest::processes() const {
  std::vector<std::string> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    try {
      if (Support::readFile(entry.path() / "environ").find("TMPDIR=" + temporary()) != std::string::npos)
        found.push_back(Support::readFile(entry.path() / "cmdline"));
    } catch (const std::exception&) {
      continue; // not a process, already ended, or of another user
    }
  }
  return found;
}
