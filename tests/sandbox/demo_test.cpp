// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/script_test.h"
#include "tests/support/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <signal.h>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class Demo : public ScriptTest {
protected:
  fs::path kept() const { return m_directory / "kept"; }
};

/// The key ids of the registry's lines, cut to eight digits, as K1, K2, … in the order in which they appear first.
std::string withNumberedKeys(const std::string& text) {
  static const std::regex key("(keyid=|keyids=|->)([0-9a-f]{8})\\b");
  std::map<std::string, std::string> names;
  std::string result;
  auto rest = text.begin();
  for (std::sregex_iterator found(text.begin(), text.end(), key), end; found != end; ++found) {
    const auto name = names.emplace((*found)[2], "K" + std::to_string(names.size() + 1)).first;
    result.append(rest, (*found)[2].first).append(name->second);
    rest = (*found)[0].second;
  }
  return result.append(rest, text.end());
}

/// The scenes with the device's folder, which the first line names, as DEVICE, with T and N for times and numbers for
/// keys, and with the lines of each scene sorted: the order in which a directory is listed differs from file system to
/// file system.
std::string comparable(const std::string& output) {
  const std::string device = output.substr(output.find('/'), output.find('\n') - output.find('/'));
  std::string text = withoutTimes(replaced(output, device, "DEVICE"));
  std::istringstream lined(std::regex_replace(text, std::regex("\ntimestamp=[0-9]+ "), "\ntimestamp=T "));
  Lines lines;
  auto sceneBegin = lines.size();
  for (std::string line; std::getline(lined, line);) {
    lines.push_back(line);
    if (line.empty())
      sceneBegin = lines.size();
    std::sort(lines.begin() + static_cast<Lines::difference_type>(sceneBegin), lines.end());
  }
  std::string joined;
  for (const std::string& line : lines)
    joined += line + "\n";
  return withNumberedKeys(joined);
}

std::string expectedScenes() {
  return Support::readFile(KRV_SOURCE_DIRECTORY "/tests/sandbox/demo.expected");
}

/// A path as the shell reads it.
std::string quoted(const fs::path& path) {
  return Support::runOrThrow({"bash", "-c", "printf %q \"$1\"", "bash", path});
}

TEST_F(Demo, TellsItsScenes) {
  const Support::ProcessResult result = Support::run(script("demo"), environment());
  EXPECT_EQ(comparable(result.output), expectedScenes());
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  expectNothingLeft();
}

TEST_F(Demo, WorksFromAnyFolder) {
  const Support::ProcessResult result = Support::run(script("demo"), environment(), "/");
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
}

TEST_F(Demo, KeepsTheDeviceForTheEnvironmentThatItPrints) {
  const Support::ProcessResult result = Support::run(script("demo", {"--keep", kept()}), environment());
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  const auto end = result.output.find("\nThe sandbox stays in ");
  EXPECT_EQ(comparable(result.output.substr(0, end)), expectedScenes());
  EXPECT_EQ(replaced(result.output.substr(end), quoted(m_directory.path()), "FOLDER"),
            "\n"
            "The sandbox stays in FOLDER/kept, without bus and service. A shell in it, with both:\n"
            "  scripts/sandbox FOLDER/kept\n"
            "Or the same environment in the shell that you have:\n"
            "  export PATH=" +
                quoted(KRV_BINARY_DIRECTORY) +
                ":$PATH\n"
                "  export HOME=FOLDER/kept/home\n"
                "  export KRV_ROOT_FS=FOLDER/kept/device\n"
                "  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=FOLDER/kept/run/bus\n");
  expectNothingLeft();

  const std::string exports = result.output.substr(result.output.find("  export "));
  const Support::ProcessResult byHand = Support::run({"bash", "-c", exports + "rpm -qa | sort; krv-pre-installer"});
  EXPECT_EQ(byHand.output, "maps-2.0-2.noarch\nnotes-1.2-1.noarch\nplayer-1.0-1.noarch\nweather-1.0-1.noarch\n"
                           "[E] Failed to open bus (No such file or directory)\n"
                           "[E] Failed to create dbus proxy for KRV service\n");
}

TEST_F(Demo, KeepsNothingInAFolderThatIsInUse) {
  Support::writeFile(kept() / "precious", "content");
  const Support::ProcessResult result = Support::run(script("demo", {"--keep", kept()}), environment());
  EXPECT_EQ(result.errors, "demo: " + kept().string() + " is there already and no empty folder\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.status, 1);
  const Support::ProcessResult onAFile = Support::run(script("demo", {"--keep", kept() / "precious"}), environment());
  EXPECT_EQ(onAFile.status, 1);
  EXPECT_EQ(Support::readFile(kept() / "precious"), "content");
  expectNothingLeft();
}

/// A point of the story at which it ends, and the signal.
class InterruptedDemo : public Demo, public testing::WithParamInterface<std::pair<const char*, int>> {
protected:
  void interrupt(const std::vector<std::string>& command) const {
    const auto [point, signalNumber] = GetParam();
    signal(signalNumber, SIG_DFL); // a shell cannot trap what its parent ignores
    Support::Process demo(command, environment());
    ASSERT_TRUE(Support::waitUntil([&, place = point] {
      return *place == '\0' ? !processes().empty() : demo.outputSoFar().find(place) != std::string::npos;
    }));
    demo.signal(signalNumber);
    EXPECT_EQ(demo.wait().status, 128 + signalNumber);
    expectNothingLeft();
  }
};

TEST_P(InterruptedDemo, LeavesNothingBehind) {
  interrupt(script("demo"));
}

TEST_P(InterruptedDemo, LeavesNothingToKeepEither) {
  interrupt(script("demo", {"--keep", kept()}));
  EXPECT_FALSE(fs::exists(kept()));
}

INSTANTIATE_TEST_SUITE_P(AtAPoint, InterruptedDemo,
                         testing::Values(std::pair("", SIGINT), std::pair("The device lives", SIGTERM),
                                         std::pair("\n4. ", SIGINT), std::pair("\n6. ", SIGHUP),
                                         std::pair("\n10. ", SIGTERM)));

TEST(DemoUsage, IsExplained) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {}, {KRV_BINARY_DIRECTORY, "more"}, {KRV_BINARY_DIRECTORY, "--keep"}, {KRV_BINARY_DIRECTORY, "-k", "x"}}) {
    std::vector<std::string> command{KRV_SOURCE_DIRECTORY "/sandbox/demo"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Support::ProcessResult result = Support::run(command);
    EXPECT_EQ(result.errors, "usage: demo BIN-DIR [--keep DIR]\n");
    EXPECT_EQ(result.status, 2);
  }
}

} // namespace
