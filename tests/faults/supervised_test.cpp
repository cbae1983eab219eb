// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/faults/supervised.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include <signal.h>
#include <sys/syscall.h>

namespace {

namespace fs = std::filesystem;
using Support::Fault;
using Support::SeenCall;
using Support::SupervisedResult;

/// Runs programs of the system under supervision.
class Supervised : public testing::Test {
protected:
  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
    Support::writeFile(file, "content\n");
  }

  SupervisedResult run(const std::vector<std::string>& command, const std::optional<Fault>& fault = {}) const {
    return Support::runSupervised(command, {{"LC_ALL", "C"}}, folder.path(), fault);
  }

  /// The last call with that name in a run without a fault.
  SeenCall lastCall(const std::vector<std::string>& command, const std::string& name) const {
    const std::vector<SeenCall> calls = run(command).calls;
    const auto found = std::find_if(calls.rbegin(), calls.rend(), [&](const auto& call) { return call.name == name; });
    return found == calls.rend() ? throw std::runtime_error("no " + name) : *found;
  }

  Support::TempDirectory folder;
  fs::path file = folder / "file";
};

TEST_F(Supervised, SeesCallsOnFilesOfTheFolder) {
  const SupervisedResult result = run({"cat", file});
  EXPECT_EQ(result.process.status, 0);
  EXPECT_EQ(result.process.output, "content\n");
  ASSERT_FALSE(result.calls.empty());
  EXPECT_EQ(result.calls.front().name, "openat");
  EXPECT_EQ(result.calls.back().name, "close");
  for (const SeenCall& call : result.calls)
    EXPECT_EQ(call.path, file) << call.name;
  EXPECT_EQ(result.unknownCalls, std::set<long>());
}

TEST_F(Supervised, ResolvesRelativePaths) {
  const SupervisedResult result = run({"env", "-C", folder.path(), "cat", "file"});
  EXPECT_EQ(result.process.output, "content\n");
  EXPECT_EQ(std::ranges::count(result.calls, file.string(), &SeenCall::path), std::ssize(result.calls) - 1);
  EXPECT_EQ(result.calls.front().name, "chdir");
}

TEST_F(Supervised, MakesACallFail) {
  const SupervisedResult result =
      run({"cat", file}, Fault{.call = run({"cat", file}).calls.front(), .kind = Fault::Kind::Error, .error = EMFILE});
  EXPECT_EQ(result.process.status, 1);
  EXPECT_EQ(result.process.output, "");
  EXPECT_EQ(result.process.errors, "cat: " + file.string() + ": Too many open files\n");
}

TEST_F(Supervised, ShortensARead) {
  const std::vector<std::string> command = {"dd", "if=" + file.string(), "bs=100", "count=1", "status=none"};
  EXPECT_EQ(run(command).process.output, "content\n");
  EXPECT_EQ(run(command, Fault{.call = lastCall(command, "read"), .kind = Fault::Kind::Short}).process.output, "c");
}

TEST_F(Supervised, ShortensAWrite) {
  const fs::path other = folder / "other";
  const std::vector<std::string> command = {"bash", "-c", "printf content >\"$0\"", other};
  const auto writesOf = [](const SupervisedResult& result) {
    return std::ranges::count(result.calls, "write", &SeenCall::name);
  };
  EXPECT_EQ(writesOf(run(command)), 1);
  const SupervisedResult result = run(command, Fault{.call = lastCall(command, "write"), .kind = Fault::Kind::Short});
  EXPECT_EQ(writesOf(result), 2);
  EXPECT_EQ(Support::readFile(other), "content");
}

TEST_F(Supervised, ClosesAFileWhoseCloseFails) {
  const std::vector<std::string> command = {"bash", "-c",
                                            "exec 3<\"$0\"; exec 3<&-; readlink /proc/$$/fd/* | grep -c \"$0\"", file};
  const Fault fault{.call = lastCall(command, "close"), .kind = Fault::Kind::Error, .error = EIO};
  EXPECT_EQ(run(command, fault).process.output, "0\n");
}

TEST_F(Supervised, KillsAProcessBeforeACall) {
  const std::vector<std::string> command = {"truncate", "-s", "0", file};
  const Fault fault{.call = lastCall(command, "ftruncate"), .kind = Fault::Kind::KillBefore};
  Support::writeFile(file, "content\n");
  EXPECT_EQ(run(command, fault).process.status, 128 + SIGKILL);
  EXPECT_EQ(Support::readFile(file), "content\n");
}

TEST_F(Supervised, KillsAProcessAfterACall) {
  const std::vector<std::string> command = {"truncate", "-s", "0", file};
  const SeenCall call = lastCall(command, "ftruncate");
  Support::writeFile(file, "content\n");
  const SupervisedResult result = run(command, Fault{.call = call, .kind = Fault::Kind::KillAfter});
  EXPECT_EQ(result.process.status, 128 + SIGKILL);
  EXPECT_EQ(Support::readFile(file), "");
}

TEST_F(Supervised, ReportsUnknownCalls) {
  const SupervisedResult result = run({"nice", "-n", "1", "true"});
  EXPECT_EQ(result.process.status, 0);
  EXPECT_EQ(result.unknownCalls, std::set<long>{SYS_setpriority});
}

} // namespace
