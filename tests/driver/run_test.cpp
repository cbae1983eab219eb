// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"
#include "tests/support/bus/any_bus.h"
#include "tests/support/packages/open_pgp_key.h"
#include "tests/support/process/wait.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Support::getPackageCall;
using Support::installCall;
using Support::writeFile;

class Run : public testing::Test {
protected:
  Device m_device;
};

/// Runs whose log depends on the bus, because the service is missing or disappears.
class RunOnBus : public Support::AnyBus {
protected:
  void SetUp() override {
    AnyBus::SetUp();
    if (!IsSkipped())
      m_device = std::make_unique<Device>(Support::BusSettings{.program = GetParam()});
  }

  std::unique_ptr<Device> m_device;
};

INSTANTIATE_TEST_SUITE_P(Each, RunOnBus, Support::everyBus, Support::busName);

const std::string noList = "[E] Failed to get a list of packages to pre-install\n";
const std::string noProxy = "[E] Failed to create dbus proxy for KRV service\n";

std::string missingDirectoryLines(const fs::path& directory) {
  return "[E] filesystem error: directory iterator cannot open directory: No such file or directory [" +
         directory.string() + "]\n[E] Couldn't read directory: " + directory.string() + "\n" + noList;
}

TEST_P(RunOnBus, EndsWithoutAService) {
  m_device->removeService();
  m_device->add({});
  const auto run = m_device->run();
  EXPECT_EQ(run.log, "[E] " + texts().noService + "\n" + noProxy);
  EXPECT_EQ(run.status, 1);
}

TEST_F(Run, EndsWithoutABus) {
  m_device.add({});
  const auto run = m_device.run({{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + m_device.root().string() + "/nowhere"}});
  EXPECT_EQ(run.log, "[E] Failed to open bus (No such file or directory)\n" + noProxy);
  EXPECT_EQ(run.status, 1);
}

TEST_F(Run, EndsWithoutAPreinstallDirectory) {
  fs::remove(m_device.preinstallDirectory());
  const auto run = m_device.run();
  EXPECT_EQ(run.log, missingDirectoryLines(m_device.preinstallDirectory()));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(m_device.service().calls(), std::vector<Support::ReceivedCall>());
}

TEST_F(Run, EndsWhenTheDirectoryIsAFile) {
  fs::remove(m_device.preinstallDirectory());
  writeFile(m_device.preinstallDirectory(), "");
  const auto run = m_device.run();
  EXPECT_EQ(run.log, "[E] filesystem error: directory iterator cannot open directory: Not a directory [" +
                         m_device.preinstallDirectory().string() +
                         "]\n[E] Couldn't read directory: " + m_device.preinstallDirectory().string() + "\n" + noList);
  EXPECT_EQ(run.status, 1);
}

TEST_F(Run, EndsWhenTheDirectoryHasADanglingSymlink) {
  m_device.add({});
  const fs::path link = m_device.preinstallDirectory() / "dangling.rpm";
  fs::create_symlink("nowhere", link);
  const auto run = m_device.run();
  EXPECT_EQ(run.log, "[E] filesystem error: cannot get file time: No such file or directory [" + link.string() +
                         "]\n[E] Couldn't read directory: " + m_device.preinstallDirectory().string() + "\n" + noList);
  EXPECT_EQ(run.status, 1);
}

TEST_F(Run, LogsOnlyTheTimeForAnEmptyDirectory) {
  const auto run = m_device.run();
  EXPECT_EQ(run.log, timeLine);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(m_device.service().calls(), std::vector<Support::ReceivedCall>());
}

TEST_F(Run, DoesNotReadTheRegistryWithoutNeed) {
  m_device.run();
  EXPECT_FALSE(fs::exists(m_device.root() / "var"));
}

TEST_F(Run, ReportsEachOutcomeInTheOrderOfTheListing) {
  for (const std::string name : {"a", "b", "c", "d"})
    m_device.add({.name = name});
  m_device.service().onInstall(m_device.preinstallDirectory() / "b.rpm").fail("velta.KRV.Error.FileConflict", "No");
  m_device.service().onInstall(m_device.preinstallDirectory() / "d.rpm").fail("org.example.Other", "Never");
  std::string expected;
  std::vector<Support::ReceivedCall> calls;
  for (const fs::path& path : m_device.entries()) {
    const std::string name = path.stem();
    calls.push_back(getPackageCall(name));
    calls.push_back(installCall(path));
    if (name == "b")
      expected += "[E] Package installation error: No\n" + failedLine(path);
    else if (name == "d")
      expected += "[E] Package installation error: Never\n" + failedLine(path);
    else
      expected += installedLine(path);
  }
  const auto run = m_device.run();
  EXPECT_EQ(run.log, expected + timeLine);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(m_device.service().calls(), calls);
}

TEST_F(Run, ListsOnlyOneLevel) {
  const fs::path folder = m_device.preinstallDirectory() / "folder";
  m_device.rpm().build({}, folder / "inside.rpm");
  const auto run = m_device.run();
  EXPECT_EQ(run.log, unreadableLines("Couldn't read rpm package", folder) + timeLine);
  EXPECT_EQ(run.status, 0);
}

TEST_F(Run, ReadsNoArguments) {
  const fs::path path = m_device.add({});
  Support::Process tool({Support::program("krv-pre-installer"), "--help", "-x", "/nowhere"},
                        {{"KRV_ROOT_FS", m_device.root().string()}});
  EXPECT_EQ(m_device.finish(tool).log, installedLine(path) + timeLine);
}

TEST_F(Run, CountsWholeSecondsOfItsOwnTime) {
  m_device.add({});
  m_device.service().onInstall().whenReleased().succeed();
  const auto begin = std::chrono::steady_clock::now();
  const auto passed = [&] { return std::chrono::steady_clock::now() - begin; };
  const auto tool = m_device.start();
  ASSERT_TRUE(m_device.service().waitForCalls(2));
  const auto inLoop = std::chrono::steady_clock::now();
  ASSERT_TRUE(
      Support::waitUntil([&] { return std::chrono::steady_clock::now() - inLoop >= std::chrono::milliseconds(1100); }));
  m_device.service().release();
  const auto run = m_device.finish(*tool);
  ASSERT_TRUE(run.seconds.has_value());
  EXPECT_GE(*run.seconds, 1);
  EXPECT_LE(std::chrono::seconds(*run.seconds), passed());
}

TEST_F(Run, WritesEachLineAtOnce) {
  m_device.add({.name = "a"});
  m_device.add({.name = "b"});
  const fs::path refused = m_device.entries().front();
  writeFile(refused, "not a package\n"); // keeps the order of the entries
  m_device.service().onInstall().whenReleased().succeed();
  const auto tool = m_device.start();
  ASSERT_TRUE(m_device.service().waitForCalls(2));
  EXPECT_EQ(tool->outputSoFar(), unreadableLines("Couldn't read rpm package", refused));
  m_device.service().release();
  m_device.finish(*tool);
}

TEST_P(RunOnBus, ContinuesWhenTheServiceLeavesBetweenTwoCalls) {
  const fs::path path = m_device->add({});
  m_device->service().onGetPackage().beforeLeaving().fail("velta.KRV.Error.PackageNotExist");
  const auto run = m_device->run();
  EXPECT_EQ(run.log, "[E] Package installation error: " + texts().noService + "\n" + failedLine(path) + timeLine);
  EXPECT_EQ(run.status, 0);
}

TEST_P(RunOnBus, ContinuesWhenTheServiceDiesDuringAnInstallation) {
  m_device->add({.name = "a"});
  m_device->add({.name = "b"});
  const std::vector<fs::path> paths = m_device->entries();
  m_device->service().onInstall(paths[0]).die();
  const auto run = m_device->run();
  EXPECT_EQ(run.log, "[E] Package installation error: " + texts().noReply + "\n" + failedLine(paths[0]) + "[E] " +
                         texts().noService + "\n" + "[E] Failed to query information about installed package: " +
                         paths[1].stem().string() + "\n" + "[E] Package installation error: " + texts().noService +
                         "\n" + failedLine(paths[1]) + timeLine);
  EXPECT_EQ(run.status, 0);
}

TEST_P(RunOnBus, HasAllLinesOfEachPackageWhenTheServiceDiesAtEachCall) {
  m_device->removeService();
  m_device->bus().provide("velta.KRV", Support::program("test-dying-service"));
  for (const char* name : {"a", "b", "c"})
    m_device->add({.name = name});
  std::string expected;
  for (const fs::path& path : m_device->entries())
    expected += "[E] " + texts().noReply +
                "\n[E] Failed to query information about installed package: " + path.stem().string() +
                "\n[E] Package installation error: " + texts().noReply + "\n" + failedLine(path);
  const auto run = m_device->run();
  EXPECT_EQ(run.log, expected + timeLine);
  EXPECT_EQ(run.status, 0);
  EXPECT_LT(run.seconds.value(), 10);
}

/// It could be started once and never again, as a service whose own state it cannot read.
TEST_P(RunOnBus, HasAllLinesOfEachPackageWhenTheServiceCannotBeStartedAgain) {
  m_device->removeService();
  const fs::path service = m_device->root() / "service";
  writeFile(service, "#!/bin/sh\nmkdir '" + (m_device->root() / "started").string() +
                         "' 2>/dev/null || exit 1\nexec '" + Support::program("test-dying-service").string() + "'\n");
  fs::permissions(service, fs::perms::owner_all);
  m_device->bus().provide("velta.KRV", service);
  for (const char* name : {"a", "b", "c"})
    m_device->add({.name = name});
  std::string expected;
  for (const fs::path& path : m_device->entries())
    expected += "[E] " + (expected.empty() ? texts().noReply : texts().deadService) +
                "\n[E] Failed to query information about installed package: " + path.stem().string() +
                "\n[E] Package installation error: " + texts().deadService + "\n" + failedLine(path);
  const auto run = m_device->run();
  EXPECT_EQ(run.log, expected + timeLine);
  EXPECT_EQ(run.status, 0);
  EXPECT_LT(run.seconds.value(), 10);
}

TEST_F(Run, StopsWithItsTimeAndTheReasonWhenTheRegistryFolderCannotBeCreated) {
  m_device.add({});
  writeFile(m_device.root() / "var", "in the way");
  const auto run = m_device.run();
  const std::string folder = (m_device.root() / "var/lib/krv").string();
  EXPECT_EQ(run.log, "[E] filesystem error: cannot create directories: Not a directory [" + folder + "]\n" + timeLine +
                         "[E] Couldn't create directory: " + folder + "\n");
  EXPECT_EQ(run.status, 2);
}

TEST_F(Run, NeedsNoRegistryFolderForInstalledPackages) {
  const fs::path path = m_device.add({.version = "2.0"});
  m_device.service().hasInstalled("sample", "1.0-1", Support::Pki::instance().keyId("alice"));
  writeFile(m_device.root() / "var", "in the way");
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
}

TEST_F(Run, ContinuesWithoutAReaderOfItsLog) {
  m_device.add({});
  Support::Process tool({"sh", "-c", "\"$0\" >/dev/full", Support::program("krv-pre-installer")},
                        {{"KRV_ROOT_FS", m_device.root().string()}});
  EXPECT_EQ(tool.wait().status, 0);
  EXPECT_EQ(m_device.service().calls().size(), 2U);
}

/// Runs with closed or broken standard streams.
class RunWithOddStreams : public Run {
protected:
  RunWithOddStreams() {
    m_device.add({.name = "a"});
    m_device.add({.name = "b"});
  }

  Support::ProcessResult runAfter(const std::function<void()>& beforeStart) {
    // SQLite leaks memory if librpm's database cannot grow.
    Support::Process tool({Support::program("krv-pre-installer")},
                          {{"KRV_ROOT_FS", m_device.root().string()}, {"ASAN_OPTIONS", "detect_leaks=0"}}, ".",
                          beforeStart);
    return tool.wait();
  }

  std::vector<Support::ReceivedCall> allCalls() const {
    std::vector<Support::ReceivedCall> calls;
    for (const fs::path& path : m_device.entries()) {
      calls.push_back(getPackageCall(path.stem()));
      calls.push_back(installCall(path));
    }
    return calls;
  }

  /// The target of a descriptor of a running tool.
  static fs::path streamOf(const Support::Process& tool, int number) {
    return fs::read_symlink("/proc/" + std::to_string(tool.id()) + "/fd/" + std::to_string(number));
  }

  /// Replaces a descriptor by a pipe without a reader.
  static void breakStream(int number) {
    int ends[2];
    if (pipe(ends) != 0)
      _exit(125);
    dup2(ends[1], number);
    ::close(ends[0]);
    ::close(ends[1]);
  }
};

TEST_F(RunWithOddStreams, ContinuesWhenTheReaderOfItsLogDisappears) {
  EXPECT_EQ(runAfter([] { breakStream(STDOUT_FILENO); }).status, 0);
  EXPECT_EQ(m_device.service().calls(), allCalls());
}

// librpm writes to standard error, sometimes while its own signal handlers are installed.
TEST_F(RunWithOddStreams, ContinuesWhenTheReaderOfItsErrorsDisappears) {
  const fs::path sealed = m_device.add({.name = "sealed"}, "");
  const Support::OpenPgpKey key(m_device.rpm());
  key.sign(sealed);
  const Support::ProcessResult result = runAfter([] { breakStream(STDERR_FILENO); });
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(std::ranges::count(result.output, '\n'), 2 + 3 + 1);
}

TEST_F(RunWithOddStreams, DoesNotReuseTheNumberOfAClosedStream) {
  m_device.service().onInstall().whenReleased().succeed();
  const auto closing = [&](const std::vector<int>& numbers) {
    return std::make_unique<Support::Process>(std::vector{Support::program("krv-pre-installer").string()},
                                              Support::Environment{{"KRV_ROOT_FS", m_device.root().string()}}, ".",
                                              [numbers] {
                                                for (const int number : numbers)
                                                  ::close(number);
                                              });
  };
  const auto withoutOutput = closing({STDOUT_FILENO});
  const auto withoutAny = closing({STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO});
  // When the tools ask for their first installation, all descriptors that they ever open are open.
  ASSERT_TRUE(m_device.service().waitForCalls(4));
  EXPECT_EQ(streamOf(*withoutOutput, STDOUT_FILENO), "/dev/null");
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    EXPECT_EQ(streamOf(*withoutAny, number), "/dev/null") << number;
  m_device.service().release();
  EXPECT_EQ(withoutOutput->wait().status, 0);
  EXPECT_EQ(withoutAny->wait().status, 0);
  EXPECT_EQ(m_device.service().calls().size(), 2 * allCalls().size());
}

TEST_F(RunWithOddStreams, ContinuesWhenItsLogReachesTheFileSizeLimit) {
  const Support::ProcessResult result = runAfter([] {
    const rlimit limit{100, 100};
    setrlimit(RLIMIT_FSIZE, &limit);
  });
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output,
            (installedLine(m_device.entries()[0]) + installedLine(m_device.entries()[1])).substr(0, 100));
  EXPECT_EQ(m_device.service().calls(), allCalls());
}

// KRV_ROOT_FS

TEST_F(Run, UsesTheRealRootWithoutTheVariable) {
  const fs::path directory = "/usr/share/krv/pre-install-apps";
  if (fs::exists(directory))
    GTEST_SKIP() << "this machine has a pre-install directory";
  const auto run = m_device.run({{"KRV_ROOT_FS", std::nullopt}});
  EXPECT_EQ(run.log, missingDirectoryLines(directory));
  EXPECT_EQ(run.status, 1);
}

TEST_F(Run, TreatsAnEmptyRootAsTheWorkingDirectory) {
  m_device.add({});
  const auto run = m_device.run({{"KRV_ROOT_FS", ""}}, m_device.root());
  EXPECT_EQ(run.log, installedLine("usr/share/krv/pre-install-apps/sample.rpm") + timeLine);
  EXPECT_TRUE(fs::exists(m_device.root() / "var/lib/krv/registry.lock"));
}

TEST_F(Run, ResolvesARelativeRootAgainstTheWorkingDirectory) {
  m_device.add({});
  const auto run = m_device.run({{"KRV_ROOT_FS", "root"}}, m_device.root().parent_path());
  EXPECT_EQ(run.log, installedLine("root/usr/share/krv/pre-install-apps/sample.rpm") + timeLine);
  EXPECT_EQ(m_device.service().calls().back(), installCall("root/usr/share/krv/pre-install-apps/sample.rpm"));
}

TEST_F(Run, AddsNoSecondSlashToARootWithATrailingSlash) {
  const fs::path path = m_device.add({});
  EXPECT_EQ(m_device.run({{"KRV_ROOT_FS", m_device.root().string() + "/"}}).log, installedLine(path) + timeLine);
}

TEST_F(Run, ReportsAMissingRoot) {
  const fs::path nowhere = m_device.root() / "nowhere";
  const auto run = m_device.run({{"KRV_ROOT_FS", nowhere.string()}});
  EXPECT_EQ(run.log, missingDirectoryLines(nowhere / "usr/share/krv/pre-install-apps"));
  EXPECT_EQ(run.status, 1);
}

} // namespace
