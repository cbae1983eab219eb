// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/environment.h"
#include "tests/support/process.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <signal.h>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

/// The demo's programs put all their files below this folder, also the running ones' sockets: a process that is left
/// behind shows by its command line.
class Demo : public testing::Test {
protected:
  std::vector<std::string> command() const {
    return {std::string(KRV_SOURCE_DIRECTORY) + "/sandbox/demo", KRV_BINARY_DIRECTORY};
  }
  Support::Environment environment() const { return {{"TMPDIR", m_directory.path().string()}}; }

  void expectNothingLeft() const {
    EXPECT_TRUE(fs::is_empty(m_directory.path()));
    EXPECT_EQ(processesOfTheDemo(), Lines());
  }

  Lines processesOfTheDemo() const {
    Lines found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::string environment;
      try {
        environment = Support::readFile(entry.path() / "environ");
      } catch (const std::exception&) {
        continue; // not a process, gone, or somebody else's
      }
      if (environment.find("TMPDIR=" + m_directory.path().string()) != std::string::npos)
        found.push_back(entry.path().filename());
    }
    return found;
  }

  Support::TempDirectory m_directory;
};

/// The output without the folder's random name, and with the lines of each scene sorted: the order in which a
/// directory is listed differs from file system to file system.
std::string comparable(const std::string& output) {
  std::istringstream text(std::regex_replace(output, std::regex("/[^ \"]*/krv-demo\\.[A-Za-z0-9]*/device"), "DEVICE"));
  Lines lines;
  auto sceneBegin = lines.size();
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
    if (line.empty())
      sceneBegin = lines.size();
    std::sort(lines.begin() + static_cast<Lines::difference_type>(sceneBegin), lines.end());
  }
  std::string joined;
  for (const std::string& line : lines)
    joined += line + "\n";
  return joined;
}

TEST_F(Demo, TellsItsScenes) {
  const Support::ProcessResult result = Support::run(command(), environment());
  EXPECT_EQ(comparable(result.output),
            comparable(Support::readFile(fs::path(KRV_SOURCE_DIRECTORY) / "tests/sandbox/demo.expected")));
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  expectNothingLeft();
}

TEST_F(Demo, WorksFromAnyFolder) {
  const Support::ProcessResult result = Support::run(command(), environment(), "/");
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
}

class InterruptedDemo : public Demo, public testing::WithParamInterface<int> {};

TEST_P(InterruptedDemo, LeavesNothingBehind) {
  signal(GetParam(), SIG_DFL); // a shell cannot trap what its parent ignores
  Support::Process demo(command(), environment());
  ASSERT_TRUE(Support::waitUntil([&] { return demo.outputSoFar().find("\n4. ") != std::string::npos; }));
  demo.signal(GetParam());
  EXPECT_EQ(demo.wait().status, 128 + GetParam());
  expectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(BySignal, InterruptedDemo, testing::Values(SIGINT, SIGTERM));

TEST(DemoUsage, IsExplained) {
  const Support::ProcessResult result = Support::run({std::string(KRV_SOURCE_DIRECTORY) + "/sandbox/demo"});
  EXPECT_EQ(result.errors, "usage: demo BIN-DIR\n");
  EXPECT_EQ(result.status, 2);
}

} // namespace
