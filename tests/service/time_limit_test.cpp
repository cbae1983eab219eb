// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/fake_clock.h"
#include "tests/support/bus/private_bus.h"
#include "tests/support/bus/scripted_service.h"
#include "tests/support/process/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using namespace Support;

/// A child process, whose clock the test sets, makes the calls.
class TimeLimit : public testing::Test {
protected:
  TimeLimit() {
    service.onGetPackage().whenReleased().answer({{"general.version", "1.0-1"}, {"certificate.id", "key"}});
    service.onInstall().whenReleased().succeed();
  }

  void call(const std::string& method, const std::string& clockSetting = "+0s") {
    clock.set(clockSetting);
    child = std::make_unique<Process>(std::vector<std::string>{program("test-proxy-calls"), method, "app"},
                                      clock.environment());
    ASSERT_TRUE(service.waitForCalls(1));
  }

  void answerAfter(int seconds) { ASSERT_TRUE(clock.answerAfter(seconds, *child, service)); }

  PrivateBus bus;
  ScriptedService service;
  FakeClock clock;
  std::unique_ptr<Process> child;
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
