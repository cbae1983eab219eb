// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"
#include "tests/support/bus/fake_clock.h"
#include "tests/support/faults/supervised.h"
#include "tests/support/signing/pki.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

namespace fs = std::filesystem;
using Support::ScriptedService;

constexpr std::size_t mebibyte = 1024 * 1024;
const std::string noReply = "Message recipient disconnected from message bus without replying";
const std::string noService = "The name velta.KRV was not provided by any .service files";

std::string queryLines(const std::string& message, const fs::path& path) {
  return "[E] " + message + "\n[E] Failed to query information about installed package: " + path.stem().string() + "\n";
}

std::string installationLines(const std::string& message, const fs::path& path) {
  return "[E] Package installation error: " + message + "\n" + failedLine(path);
}

/// Two packages to install. The service misbehaves for `first`, the first one of the listing.
class HostileService : public testing::Test {
protected:
  HostileService() : HostileService(32 * mebibyte) {}
  explicit HostileService(std::size_t largestMessage)
      : m_device(Support::BusSettings{.largestMessage = largestMessage}) {
    m_device.add({.name = "a"});
    m_device.add({.name = "b"});
    const std::vector<fs::path> entries = m_device.entries();
    first = entries.at(0);
    second = entries.at(1);
  }

  ScriptedService::Script onQuery() { return m_device.service().onGetPackage(first.stem()); }
  ScriptedService::Script onInstallation() { return m_device.service().onInstall(first); }

  /// Expects `firstLines` for the first package, and that the second one is installed.
  void expectLog(const Device::Run& run, const std::string& firstLines) const {
    EXPECT_EQ(run.log, firstLines + installedLine(second) + timeLine);
    EXPECT_EQ(run.status, 0);
  }

  Device m_device;
  fs::path first;
  fs::path second;
};

// Time

TEST_F(HostileService, MayAnswerSlowly) {
  const Support::FakeClock clock;
  onQuery().whenReleased().fail("velta.KRV.Error.PackageNotExist");
  const auto tool = m_device.start(clock.environment());
  ASSERT_TRUE(m_device.service().waitForCalls(1));
  ASSERT_TRUE(clock.answerAfter(24, *tool, m_device.service()));
  const auto run = m_device.finish(*tool);
  expectLog(run, installedLine(first));
  EXPECT_THAT(run.seconds, testing::Optional(testing::AllOf(testing::Ge(24), testing::Lt(60))));
}

TEST_F(HostileService, MayInstallSlowly) {
  const Support::FakeClock clock;
  onInstallation().whenReleased().succeed();
  const auto tool = m_device.start(clock.environment());
  ASSERT_TRUE(m_device.service().waitForCalls(2));
  ASSERT_TRUE(clock.answerAfter(299, *tool, m_device.service()));
  const auto run = m_device.finish(*tool);
  expectLog(run, installedLine(first));
  EXPECT_THAT(run.seconds, testing::Optional(testing::AllOf(testing::Ge(299), testing::Lt(400))));
}

TEST_F(HostileService, DelaysTheRunByItsTimeLimitsIfItNeverAnswers) {
  const Support::FakeClock clock;
  clock.set("+0s x200");
  m_device.service().onGetPackage().keepSilent();
  m_device.service().onInstall().keepSilent();
  const auto tool = m_device.start(clock.environment());
  const auto run = m_device.finish(*tool);
  const std::string late = "Connection timed out";
  EXPECT_EQ(run.log, queryLines(late, first) + installationLines(late, first) + queryLines(late, second) +
                         installationLines(late, second) + timeLine);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.seconds, testing::Optional(testing::AllOf(testing::Ge(650), testing::Lt(1000))));
}

// Answers

TEST_F(HostileService, FailsIfItsAnswerHasAnotherType) {
  const std::string lines =
      queryLines("Failed to enter a container (No such device or address)", first) + installedLine(first);
  onQuery().succeed();
  expectLog(m_device.run(), lines);
  onQuery().answerAs("s", "general.version");
  expectLog(m_device.run(), lines);
  onQuery().answerAs("a{sv}", 2, "general.version", "s", "9-1", "certificate.id", "s", "key");
  expectLog(m_device.run(), lines);
  onQuery().answerAs("sa{ss}", "first", 1, "general.version", "9-1");
  expectLog(m_device.run(), lines);
}

TEST_F(HostileService, MayAddToTheDictionary) {
  const std::string key = Support::Pki::instance().keyId("alice");
  onQuery().answerAs("a{ss}sai", 2, "general.version", "0.1-1", "certificate.id", key.c_str(), "more", 2, 7, 8);
  onInstallation().answerAs("a{ss}", 1, "nobody", "reads this");
  expectLog(m_device.run(), installedLine(first));
}

TEST_F(HostileService, CountsWithTheFirstOfRepeatedKeys) {
  const std::string key = Support::Pki::instance().keyId("alice");
  onQuery().answer({{"general.version", "9-1"},
                    {"certificate.id", key},
                    {"general.version", "0.1-1"},
                    {"certificate.id", "another"}});
  expectLog(m_device.run(),
            "[E] The package version is lower than or equal to the version of an already installed package: " +
                quoted(first) + "\n" + skippedLine(first));
}

// Errors

TEST_F(HostileService, MayFailWithoutAMessage) {
  onQuery().fail("velta.KRV.Error.Internal", "");
  onInstallation().fail("velta.KRV.Error.Internal", "");
  expectLog(m_device.run(), "[E] Failed to query information about installed package: " + first.stem().string() + "\n" +
                                installationLines("", first));
}

TEST_F(HostileService, HasItsMessagesLoggedUnchanged) {
  const std::string message = "one\r\n[I] two\n\n\x1b[2J\x01\x7f%s%n\\n\"three\" ";
  onQuery().fail("velta.KRV.Error.Internal", message);
  onInstallation().fail("velta.KRV.Error.Internal", message);
  expectLog(m_device.run(), queryLines(message, first) + installationLines(message, first));
}

TEST_F(HostileService, MayFailWithLongMessages) {
  const std::string name = "velta.KRV.Error.PackageNotExist." + std::string(223, 'x'); // 255 bytes, the longest name
  const std::string message(8 * mebibyte, 'm');
  onQuery().fail(name, message);
  onInstallation().fail(name, message);
  const auto run = m_device.runWithin(244);
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(run.log ==
              queryLines(message, first) + installationLines(message, first) + installedLine(second) + timeLine);
}

// Size

TEST_F(HostileService, IsDisconnectedByTheBusIfItsAnswerIsTooLarge) {
  onQuery().answer({{"general.version", std::string(33 * mebibyte, 'v')}});
  const auto run = m_device.run();
  EXPECT_EQ(run.log, queryLines(noReply, first) + installationLines(noService, first) + queryLines(noService, second) +
                         installationLines(noService, second) + timeLine);
  EXPECT_EQ(run.status, 0);
}

class HostileServiceOnAWideBus : public HostileService {
protected:
  HostileServiceOnAWideBus() : HostileService(128 * mebibyte) {}

  /// `count` MiB; less with AddressSanitizer, which copies a growing message each time it grows.
  static std::size_t mebibytes(std::size_t count) { return count * mebibyte / (Device::isSanitized() ? 4 : 1); }
};

TEST_F(HostileServiceOnAWideBus, MayAnswerWith62MebibytesOfText) {
  onQuery().answer(
      {{"general.version", std::string(mebibytes(31), '1')}, {"certificate.id", std::string(mebibytes(31), 'k')}});
  expectLog(m_device.runWithin(300),
            "[E] Failed to parse rpm package version: 1.0-1\n"
            "[W] Failed to compare the package version with the version of an already installed package: " +
                quoted(first) +
                "\n[E] Package developer doesn't match with the developer of an already installed package: " +
                quoted(first) + "\n" + skippedLine(first));
}

TEST_F(HostileServiceOnAWideBus, MayAnswerWith64MebibytesOfEntries) {
  ScriptedService::Dictionary entries;
  for (std::size_t i = 0; i < mebibytes(64) / 24; ++i)
    entries.emplace_back(std::to_string(1'000'000 + i), "");
  onQuery().answer(entries);
  const auto run = m_device.runWithin(300);
  expectLog(run, "[E] Failed to determinate package version: " + first.stem().string() + "\n" + installedLine(first));
}

// Coming and going

TEST_F(HostileService, MayBeReplacedBetweenTwoCalls) {
  onQuery().beforeLeaving().fail("velta.KRV.Error.PackageNotExist");
  ScriptedService successor(ScriptedService::Claim::OrWait);
  successor.onInstall(second).fail("velta.KRV.Error.Internal", "the new one");
  const auto run = m_device.run();
  EXPECT_EQ(run.log, installedLine(first) + installationLines("the new one", second) + timeLine);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(m_device.service().calls(), std::vector{Support::getPackageCall(first.stem())});
  EXPECT_EQ(successor.calls(), (std::vector{Support::installCall(first), Support::getPackageCall(second.stem()),
                                            Support::installCall(second)}));
}

TEST_F(HostileService, MayBeReplacedBetweenTwoPackages) {
  onInstallation().beforeLeaving().succeed();
  const ScriptedService successor(ScriptedService::Claim::OrWait);
  expectLog(m_device.run(), installedLine(first));
  EXPECT_EQ(successor.calls(), (std::vector{Support::getPackageCall(second.stem()), Support::installCall(second)}));
}

TEST_F(HostileService, FailsTheInstallationDuringWhichItIsReplaced) {
  onInstallation().die();
  const ScriptedService successor(ScriptedService::Claim::OrWait);
  expectLog(m_device.run(), installationLines(noReply, first));
}

// The bus

const std::string cut = "Connection reset by peer";
const std::string noBus = "Transport endpoint is not connected";

TEST_F(HostileService, MayLoseItsBusDuringAQuery) {
  onQuery().keepSilent();
  const auto tool = m_device.start();
  ASSERT_TRUE(m_device.service().waitForCalls(1));
  m_device.bus().stop();
  const auto run = m_device.finish(*tool);
  EXPECT_EQ(run.log, queryLines(cut, first) + installationLines(noBus, first) + queryLines(noBus, second) +
                         installationLines(noBus, second) + timeLine);
  EXPECT_EQ(run.status, 0);
}

TEST_F(HostileService, MayLoseItsBusDuringAnInstallation) {
  onInstallation().keepSilent();
  const auto tool = m_device.start();
  ASSERT_TRUE(m_device.service().waitForCalls(2));
  m_device.bus().stop();
  const auto run = m_device.finish(*tool);
  EXPECT_EQ(run.log,
            installationLines(cut, first) + queryLines(noBus, second) + installationLines(noBus, second) + timeLine);
  EXPECT_EQ(run.status, 0);
}

TEST_F(HostileService, MayLoseItsBusBetweenTwoPackages) {
  if (!Support::canSupervise())
    GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
  const auto stopBus = [this](const Support::SeenCall&) {
    m_device.bus().stop();
    return 0;
  };
  const auto run = m_device.runOf(Support::runSupervised({Support::program("krv-pre-installer")},
                                                         {{"KRV_ROOT_FS", m_device.root().string()}}, m_device.root(),
                                                         {}, Support::beforeNth("open", 1, second, stopBus))
                                      .process);
  EXPECT_EQ(run.log, installedLine(first) + queryLines(cut, second) + installationLines(noBus, second) + timeLine);
  EXPECT_EQ(run.status, 0);
}

} // namespace
