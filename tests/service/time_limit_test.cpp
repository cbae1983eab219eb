// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/private_bus.h"
#include "tests/support/process.h"
#include "tests/support/scripted_service.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

namespace {

using namespace Support;

/// The calls are made by a child process whose clock the test sets.
class TimeLimit : public testing::Test {
protected:
  TimeLimit() {
    service.onGetPackage().whenReleased().answer({{"general.version", "1.0-1"}, {"certificate.id", "key"}});
    service.onInstall().whenReleased().succeed();
  }

  /// Starts the child. Its clock is what the file `clock` says, read anew whenever the child looks.
  void call(const std::string& method, const std::string& clockSetting = "+0s") {
    setClock(clockSetting);
    child = std::make_unique<Process>(std::vector<std::string>{program("test-proxy-calls"), method, "app"},
                                      Environment{{"LD_PRELOAD", faketimeLibrary()},
                                                  {"FAKETIME_TIMESTAMP_FILE", clock},
                                                  {"FAKETIME_NO_CACHE", "1"},
                                                  {"SYSTEMD_BUS_TIMEOUT", std::nullopt},
                                                  // AddressSanitizer wants to be preloaded before anything else.
                                                  {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    ASSERT_TRUE(service.waitForCalls(1));
  }

  /// Sets the child's clock to so many seconds later, and sees to it that the child looks at its clock before the
  /// answer comes.
  void answerAfter(int seconds) {
    std::string sleep;
    ASSERT_TRUE(waitUntil([&] { return !(sleep = currentSleep()).empty(); }));
    setClock("+" + std::to_string(seconds) + "s");
    service.nudge();
    ASSERT_TRUE(waitUntil([&] {
      const std::string next = currentSleep();
      return !child->isRunning() || (!next.empty() && next != sleep);
    }));
    service.release();
  }

  PrivateBus bus;
  ScriptedService service;
  std::unique_ptr<Process> child;

private:
  /// As the faketime command preloads it.
  static std::string faketimeLibrary() {
    return runOrThrow({"faketime", "-f", "+0", "sh", "-c", "printf %s \"$LD_PRELOAD\""});
  }

  void setClock(const std::string& setting) const {
    // A child that looks in the meantime must not find an empty file.
    writeFile(clock.string() + ".new", setting + "\n");
    std::filesystem::rename(clock.string() + ".new", clock);
  }

  /// While the child sleeps, how many times it has fallen asleep; nothing while it is awake. After its call it only
  /// sleeps to wait for messages.
  std::string currentSleep() const {
    std::ifstream status("/proc/" + std::to_string(child->id()) + "/status");
    std::string line;
    bool isAsleep = false;
    while (std::getline(status, line)) {
      isAsleep = isAsleep || line.starts_with("State:\tS");
      if (isAsleep && line.starts_with("voluntary_ctxt_switches"))
        return line;
    }
    return "";
  }

  TempDirectory directory;
  std::filesystem::path clock = directory / "clock";
};

TEST_F(TimeLimit, LetsAnInstallationTake299Seconds) {
  call("install");
  answerAfter(299);
  const ProcessResult result = child->wait();
  EXPECT_EQ(result.output, "success\n");
  EXPECT_EQ(result.errors, "299\n");
}

TEST_F(TimeLimit, EndsAnInstallationThatTakesLongerThan300Seconds) {
  call("install");
  answerAfter(301);
  const ProcessResult result = child->wait();
  EXPECT_EQ(result.output, "[E] Package installation error: Connection timed out\nfailure\n");
}

TEST_F(TimeLimit, EndsAnInstallationWithoutAnAnswer) {
  call("install", "+0s x100");
  const ProcessResult result = child->wait();
  EXPECT_EQ(result.output, "[E] Package installation error: Connection timed out\nfailure\n");
  EXPECT_THAT(std::stoi(result.errors), testing::AllOf(testing::Ge(300), testing::Lt(400)));
}

TEST_F(TimeLimit, LetsAQueryTake24Seconds) {
  call("get");
  answerAfter(24);
  const ProcessResult result = child->wait();
  EXPECT_EQ(result.output, "success\n");
  EXPECT_EQ(result.errors, "24\n");
}

TEST_F(TimeLimit, EndsAQueryThatTakesLongerThan25Seconds) {
  call("get");
  answerAfter(26);
  const ProcessResult result = child->wait();
  EXPECT_EQ(result.output, "[E] Connection timed out\n"
                           "[E] Failed to query information about installed package: app\n"
                           "failure\n");
}

} // namespace
