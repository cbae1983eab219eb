// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/script_test.h"
#include "tests/sandbox/text.h"
#include "tests/support/process/wait.h"

#include <gmock/gmock.h>
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
  fs::path kept() const { return m_directory / "kept here"; }
};

/// Replaces the key ids in registry lines, cut to eight digits, by K1, K2, … in the order of their first occurrence.
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

/// Whether the line is the tool's last one about a package, or the only one about an event.
bool endsBlock(const std::string& line) {
  static const std::regex end(
      R"(  (\[[IE]\] (Skipping package pre-installation|The package successfully pre-installed|Failed to pre-install package): |timestamp=).*)");
  return std::regex_match(line, end);
}

bool continuesScene(const std::string& line) {
  return line.starts_with("> ") || line.starts_with("  [E] ") || line.starts_with("  [W] ") ||
         line.starts_with("      ");
}

/// Sorts the blocks of the packages in each scene by their last lines, because the order of a directory listing depends
/// on the file system.
std::string inOneOrder(const std::string& text) {
  std::map<std::string, std::string> blocks;
  std::string block;
  std::string result;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    block += line + "\n";
    if (endsBlock(line)) {
      blocks[line] += std::exchange(block, "");
    } else if (!continuesScene(line)) {
      for (const auto& [end, content] : std::exchange(blocks, {}))
        result += content;
      result += std::exchange(block, "");
    }
  }
  for (const auto& [end, content] : blocks)
    result += content;
  return result + block;
}

/// The output with DEVICE for the device's folder, which is in the first line, T and N for times, numbers for keys, and
/// sorted blocks.
std::string comparable(const std::string& output) {
  const std::string device = output.substr(output.find('/'), output.find('\n') - output.find('/'));
  const std::string text = withoutTimes(replaced(output, device, "DEVICE"));
  return withNumberedKeys(inOneOrder(withoutTimestamps(text)));
}

std::string expectedScenes() {
  return Support::readFile(KRV_SOURCE_DIRECTORY "/tests/sandbox/demo.expected");
}

/// A path, quoted for the shell.
std::string quoted(const fs::path& path) {
  return Support::runOrThrow({"bash", "-c", "printf %q \"$1\"", "bash", path});
}

TEST_F(Demo, ShowsItsScenesInEightyColumnsFromAnyFolder) {
  const Support::ProcessResult result = Support::run(script("demo"), environment(), "/");
  EXPECT_EQ(comparable(result.output), expectedScenes());
  EXPECT_THAT(result.output.substr(result.output.find('\n')), testing::Not(testing::ContainsRegex("[^\n]{81}")));
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  expectNothingLeft();
}

/// The indented lines below a line that begins with `heading`.
std::string linesBelow(const std::string& output, const std::string& heading) {
  std::istringstream lines(output.substr(output.find("\n" + heading) + 1));
  std::string result;
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line) && line.starts_with("  "))
    result += line + "\n";
  return result;
}

TEST_F(Demo, KeepsTheDeviceForTheLinesThatItPrints) {
  const Support::ProcessResult result = Support::run(script("demo", {"--keep", kept()}), environment());
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  const auto end = result.output.find("\nThe sandbox stays in ");
  EXPECT_EQ(comparable(result.output.substr(0, end)), expectedScenes());
  EXPECT_EQ(replaced(result.output.substr(end), quoted(kept()), "KEPT"),
            "\n"
            "The sandbox stays in " +
                kept().string() +
                ", without bus and service. A shell in it, with both:\n"
                "  " +
                quoted(KRV_SOURCE_DIRECTORY) +
                "/scripts/sandbox KEPT\n"
                "Or paste this into the shell that you have; the bus starts the service:\n"
                "  export PATH=" +
                quoted(KRV_BINARY_DIRECTORY) +
                ":$PATH\n"
                "  export HOME=KEPT/home\n"
                "  export KRV_ROOT_FS=KEPT/device\n"
                "  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=" +
                replaced(kept(), " ", "%20") +
                "/run/bus\n"
                "  mkdir KEPT/run && bus=$(dbus-daemon --config-file=KEPT/home/bus.conf --fork --print-pid)\n"
                "And this at the end:\n"
                "  kill $bus; rm -r KEPT/run\n");
  expectNothingLeft();

  const Support::ProcessResult pasted =
      Support::run({"bash", "-c",
                    linesBelow(result.output, "Or paste") + "{ rpm -qa; krv-pre-installer; } | LC_ALL=C sort\n" +
                        linesBelow(result.output, "And this")},
                   environment());
  const fs::path image = kept() / "device/usr/share/krv/pre-install-apps";
  const std::string camera = "\"" + (image / "camera-3.1-1.rpm").string() + "\"\n";
  const std::string weather = "\"" + (image / "weather-1.0-1.rpm").string() + "\"\n";
  EXPECT_EQ(
      withoutTimes(pasted.output),
      "[E] The package version is lower than or equal to the version of an already installed package: " + weather +
          "[I] Skipping package pre-installation: " + camera + "[I] Skipping package pre-installation: " + weather +
          "[I] The package was manually removed by the user: " + camera +
          "[I] Time spent for pre-installation: N seconds\n"
          "maps-2.0-2.noarch\nnotes-1.2-1.noarch\nplayer-1.0-1.noarch\nweather-1.0-1.noarch\n");
  EXPECT_EQ(pasted.errors, "");
  expectNothingLeft();
}

TEST_F(Demo, MarksTheReasonForEachPackageThatIsNotInstalled) {
  std::istringstream lines(expectedScenes());
  int outcomes = 0;
  bool isMarked = false;
  for (std::string line; std::getline(lines, line);) {
    isMarked = isMarked || line.starts_with("> ");
    if (!endsBlock(line))
      continue;
    const bool isInstalled = line.find("successfully pre-installed") != std::string::npos;
    if (!line.starts_with("  timestamp=")) {
      EXPECT_EQ(isMarked, !isInstalled) << line;
      ++outcomes;
    }
    isMarked = false;
  }
  EXPECT_EQ(outcomes, 22);
}

TEST_F(Demo, PaintsOnATerminalUnlessNoColorIsSet) {
  const auto onTerminal = [this](const std::string& noColor) {
    Support::Environment variables = environment();
    variables["NO_COLOR"] = noColor;
    std::string command;
    for (const std::string& word : script("demo"))
      command += quoted(fs::path(word)) + " ";
    return Support::run({"script", "--quiet", "--return", "--command", command, "/dev/null"}, variables).output;
  };
  EXPECT_THAT(onTerminal(""), testing::HasSubstr("\033[31m\033[1m> [E] Couldn't read rpm package\033[0m\r\n"));
  EXPECT_THAT(onTerminal("1"), testing::Not(testing::HasSubstr("\033")));
}

TEST_F(Demo, RefusesAFolderThatIsNotEmpty) {
  Support::writeFile(kept() / "precious", "content");
  const Support::ProcessResult result = Support::run(script("demo", {"--keep", kept()}), environment());
  EXPECT_EQ(result.errors, "demo: " + kept().string() + " exists and is not an empty folder\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.status, 1);
  const Support::ProcessResult onAFile = Support::run(script("demo", {"--keep", kept() / "precious"}), environment());
  EXPECT_EQ(onAFile.status, 1);
  EXPECT_EQ(Support::readFile(kept() / "precious"), "content");
  expectNothingLeft();
}

struct Interruption {
  std::string name;
  std::string point; ///< the text to wait for in the output or in the command line of a process of the demo
  int signal;
  bool keeps;
};

void PrintTo(const Interruption& interruption, std::ostream* out) {
  *out << interruption.name;
}

class InterruptedDemo : public Demo, public testing::WithParamInterface<Interruption> {
protected:
  bool hasReached(const Support::Process& demo, const std::string& point) const {
    const auto shows = [&](const std::string& text) { return text.find(point) != std::string::npos; };
    const std::string output = demo.outputSoFar();
    return output.empty() ? std::ranges::any_of(processes(), shows) : shows(output);
  }
};

TEST_P(InterruptedDemo, LeavesNothingBehind) {
  const Interruption& interruption = GetParam();
  signal(interruption.signal, SIG_DFL); // a shell cannot trap signals that its parent ignores
  const Lines arguments = interruption.keeps ? Lines{"--keep", kept()} : Lines{};
  Support::Process demo(script("demo", arguments), environment());
  ASSERT_TRUE(Support::waitUntil([&] { return hasReached(demo, interruption.point); }));
  demo.signal(interruption.signal);
  EXPECT_EQ(demo.wait().status, 128 + interruption.signal);
  expectNothingLeft();
  EXPECT_FALSE(fs::exists(kept()));
}

INSTANTIATE_TEST_SUITE_P(, InterruptedDemo,
                         testing::Values(Interruption{"InTheBeginning", "sandbox/demo", SIGINT, true},
                                         Interruption{"WhilePackagesAreBuilt", "rpmbuild", SIGTERM, false},
                                         Interruption{"WhilePackagesToKeepAreBuilt", "rpmbuild", SIGINT, true},
                                         Interruption{"BetweenScenes", "\n4. ", SIGHUP, false},
                                         Interruption{"BetweenScenesToKeep", "\n9. ", SIGTERM, true}),
                         [](const auto& instance) { return instance.param.name; });

TEST(DemoUsage, IsPrinted) {
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
