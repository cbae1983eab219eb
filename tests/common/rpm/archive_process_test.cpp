// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/archive_fixture.h"
#include "tests/common/rpm/one_processor.h"
#include "tests/support/faults/supervised.h"
#include "tests/support/process/process.h"
#include "tests/support/process/wait.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <sstream>
#include <stdexcept>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Common::Rpm::ArchiveEntry;
using Common::Rpm::ArchiveReader;

/// Handlers that call `atFile` for each file and create nothing.
Common::Rpm::ExtractionHandlers callingAtFiles(const std::function<void()>& atFile) {
  return {.directory = [](const ArchiveEntry&) {},
          .regularFile =
              [atFile](const ArchiveEntry&) {
                atFile();
                return std::any();
              },
          .symbolicLink = [](const ArchiveEntry&) {},
          .hardLinks = [](const Common::Rpm::HardLinkDescription&) {}};
}

class ArchiveProcess : public ArchiveTest::Fixture {
protected:
  /// A package with one file that does not fit into the pipe between the two threads.
  ArchiveProcess() {
    build({.install = "mkdir -p %{buildroot}/opt; truncate -s 3M %{buildroot}/opt/file", .files = "/opt/file"});
  }
};

TEST_F(ArchiveProcess, OpensAPackageWithoutProc) {
  if (!Support::canSupervise())
    GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
  const std::filesystem::path target = m_sandbox.path() / "target";
  std::filesystem::create_directory(target);
  const std::vector<std::string> command = {Support::program("extract-package"), package().string(), target.string()};
  const auto isInProc = Support::failNth("open", 2, package(), ENOENT);
  EXPECT_EQ(Support::runSupervised(command, {}, m_sandbox.path(), {}, isInProc).process.status, 0);
}

TEST_F(ArchiveProcess, ReturnsBeforeAProgramOfAHandlerEnds) {
  std::optional<Support::Process> program;
  ArchiveReader archive = open();
  const auto begin = std::chrono::steady_clock::now();
  archive.extract("/target", callingAtFiles([&] { program.emplace(std::vector<std::string>{"sleep", "30"}); }));
  EXPECT_TRUE(program);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(ArchiveProcess, CanBeAbortedBeforeAProgramOfAHandlerEnds) {
  std::optional<Support::Process> program;
  const auto begin = std::chrono::steady_clock::now();
  {
    ArchiveReader archive = open();
    const auto startAndFail = [&] {
      program.emplace(std::vector<std::string>{"sleep", "30"});
      throw std::runtime_error("given up");
    };
    EXPECT_THROW(archive.extract("/target", callingAtFiles(startAndFail)), std::runtime_error);
  }
  EXPECT_TRUE(program);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

constexpr std::array endingSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM};

/// A process whose read of the payload blocks forever, because its child keeps the pipe of the payload open.
class WaitingExtraction {
public:
  explicit WaitingExtraction(const std::string& package) : m_id(fork()) {
    if (m_id == 0)
      extract(package);
  }
  ~WaitingExtraction() {
    if (m_id > 0) {
      kill(m_id, SIGKILL);
      waitpid(m_id, nullptr, 0);
    }
  }
  WaitingExtraction(const WaitingExtraction&) = delete;
  WaitingExtraction& operator=(const WaitingExtraction&) = delete;

  /// Whether it sleeps with blocked signals.
  bool waits() const {
    std::istringstream status(Support::readFile("/proc/" + std::to_string(m_id) + "/status"));
    bool isAsleep = false;
    unsigned long long blocked = 0;
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("State:\tS"))
        isAsleep = true;
      if (line.starts_with("SigBlk:"))
        blocked = std::stoull(line.substr(std::strlen("SigBlk:")), nullptr, 16);
    }
    return isAsleep && (blocked >> (SIGUSR2 - 1) & 1) != 0;
  }

  /// The signal that ended it; nothing if it did not end or was not ended by a signal.
  std::optional<int> endAfter(int signal) {
    kill(m_id, signal);
    int status = 0;
    if (!Support::waitUntil([&] { return waitpid(m_id, &status, WNOHANG) == m_id; }, std::chrono::seconds(10)))
      return std::nullopt;
    m_id = -1;
    return WIFSIGNALED(status) ? std::optional(WTERMSIG(status)) : std::nullopt;
  }

private:
  [[noreturn]] static void extract(const std::string& package) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : endingSignals) // a shell starts background jobs with some of them ignored
      signal(number, SIG_DFL);
    ArchiveReader archive = ArchiveReader::openForExtraction(package);
    archive.extract("/target", callingAtFiles([parent = getpid()] {
                      if (fork() == 0) {
                        prctl(PR_SET_PDEATHSIG, SIGKILL);
                        while (getppid() == parent) // it may have ended before the call above
                          pause();
                        _exit(0);
                      }
                    }));
    _exit(1);
  }

  pid_t m_id;
};

class ArchiveSignal : public ArchiveProcess, public testing::WithParamInterface<int> {};

TEST_P(ArchiveSignal, EndsAProcessThatWaitsForThePayload) {
  if (ArchiveTest::OneProcessor::isAll())
    GTEST_SKIP() << "there is one processor, so there is no pipe to wait for";
  WaitingExtraction extraction(package().string());
  ASSERT_TRUE(Support::waitUntil([&] { return extraction.waits(); }));
  EXPECT_EQ(extraction.endAfter(GetParam()), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Table, ArchiveSignal, testing::ValuesIn(endingSignals),
                         [](const auto& instance) { return std::string(sigabbrev_np(instance.param)); });

TEST_F(ArchiveProcess, KeepsSignalsBlockedThatTheCallerBlocked) {
  const ArchiveTest::Events sound = extracted();
  sigset_t termination;
  sigemptyset(&termination);
  sigaddset(&termination, SIGTERM);
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &termination, &before);
  kill(getpid(), SIGTERM);
  EXPECT_EQ(extracted(), sound);
  const timespec noTime = {};
  EXPECT_EQ(sigtimedwait(&termination, nullptr, &noTime), SIGTERM);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace
