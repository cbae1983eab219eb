// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store_fixture.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/faults/supervised.h"
#include "tests/support/process/process.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <regex>
#include <set>

#include <signal.h>

namespace {

namespace fs = std::filesystem;
using Support::Fault;
using Support::PackageInput;
using Support::SeenCall;

/// Two versions that differ in everything that an update can meet, and another package with a file in common.
const PackageInput firstVersion = {
    .name = "app",
    .install = "mkdir -p %{buildroot}/opt/app/gone %{buildroot}/opt/common; cd %{buildroot}/opt\n"
               "echo 1 >app/changed; echo 1 >app/dropped; echo 1 >app/gone/file; echo 1 >app/one; ln app/one app/two\n"
               "ln -s changed app/link; echo shared >common/shared; ln -s dropped app/old-link",
    .files = "/opt/app\n/opt/common"};
const PackageInput secondVersion = {
    .name = "app",
    .version = "2.0",
    .install =
        "mkdir -p %{buildroot}/opt/app/fresh %{buildroot}/opt/common; cd %{buildroot}/opt\n"
        "echo 2 >app/changed; echo 2 >app/fresh/file; echo 2 >app/one; ln app/one app/two; ln app/one app/three\n"
        "ln -s fresh/file app/link; echo shared >common/shared; chmod 700 app/fresh",
    .files = "/opt/app\n/opt/common"};
const PackageInput other = {.name = "other",
                            .install = "mkdir -p %{buildroot}/opt/common; cd %{buildroot}/opt/common\n"
                                       "echo shared >shared; echo own >own",
                            .files = "/opt/common"};

/// The calls of the C library that change what is on the disk.
const std::set<std::string> changingCalls = {
    "chmod",   "copy_file_range", "fallocate", "fchmod",   "fchmodat", "fchown",   "ftruncate", "link",
    "linkat",  "mkdir",           "mkdirat",   "pwrite64", "rename",   "renameat", "renameat2", "rmdir",
    "symlink", "symlinkat",       "truncate",  "unlink",   "unlinkat", "write",    "writev"};

struct Operation {
  std::string name;
  bool isUpdateOrRemoval; ///< whether the first version is installed before
  bool isRemoval;
  std::size_t leastChanges; ///< how many calls change something, to the least
};

class StoreFaults : public StoreTest::Fixture, public testing::WithParamInterface<std::tuple<Operation, std::size_t>> {
protected:
  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
    const Operation& operation = std::get<Operation>(GetParam());
    const Support::CapturedLog log;
    install(other);
    if (operation.isUpdateOrRemoval)
      install(firstVersion);
    closeStore();
    m_command = {Support::program("store_tool")};
    if (operation.isRemoval)
      m_command.insert(m_command.end(), {"remove", "app"});
    else
      m_command.insert(m_command.end(),
                       {"install", package(operation.isUpdateOrRemoval ? secondVersion : firstVersion)});
    fs::rename(root(), m_template);
    restore();
    m_before = comparableState();
    const auto undisturbed = Support::runSupervised(m_command, m_environment, m_rpm.path());
    ASSERT_EQ(undisturbed.process.status, 0) << undisturbed.process.errors;
    ASSERT_EQ(undisturbed.unknownCalls, std::set<long>());
    m_calls = undisturbed.calls;
    m_after = comparableState();
    ASSERT_NE(m_before, m_after);
    ASSERT_EQ(m_after.find("a transaction"), std::string::npos);
  }

  /// What scripts/faults adds up.
  void TearDown() override {
    if (!IsSkipped())
      std::cout << testing::UnitTest::GetInstance()->current_test_info()->name() << ": " << m_disturbedCalls
                << " calls, " << m_faults << " faults, " << m_leftOut << " left out, " << m_kills << " kills, "
                << (HasFailure() ? 1 : 0) << " failures" << std::endl;
  }

  void restore() {
    Support::runOrThrow({"rm", "-rf", root().string()});
    Support::runOrThrow({"cp", "-a", m_template.string(), root().string()});
  }

  /// The state without what depends on the time of day.
  std::string comparableState() const {
    const std::string text = std::regex_replace(state(), std::regex("timestamp=[0-9]+"), "T");
    return std::regex_replace(text, std::regex("\"Installtime\">\\s*<integer>[0-9]+"), "\"Installtime\">T");
  }

  bool isChange(const SeenCall& call) const {
    return changingCalls.contains(call.name) && call.path.starts_with(root().string());
  }

  static bool isOfTheDatabase(const SeenCall& call) { return call.path.find("/var/lib/rpm") != call.path.npos; }

  /// The errors that a call is made to fail with: the three of them for what changes something, one for all others.
  std::vector<int> errorsFor(const SeenCall& call) const {
    std::vector<int> errors = {EIO};
    if (isChange(call) && !isOfTheDatabase(call))
      errors.insert(errors.end(), {ENOSPC, EACCES});
    std::erase_if(errors, [&](int error) { return std::ranges::count(call.errors, error) == 0; });
    return errors;
  }

  void disturb(const Fault& fault) {
    restore();
    const auto result = Support::runSupervised(m_command, m_environment, m_rpm.path(), fault);
    SCOPED_TRACE(fault.call.name + " " + fault.call.path + ", call " + std::to_string(fault.call.number) +
                 " of thread " + std::to_string(fault.call.thread) + ": " +
                 (fault.error != 0 ? strerrorname_np(fault.error) : "SIGKILL") + "; it said: " + result.process.output +
                 result.process.errors);
    ASSERT_TRUE(result.metFault);
    if (fault.error == 0) {
      EXPECT_EQ(result.process.status, 128 + SIGKILL);
    } else {
      EXPECT_LT(result.process.status, 2);
      if (result.process.status == 1) {
        EXPECT_EQ(comparableState(), m_before);
      }
    }
    {
      const Support::CapturedLog log;
      store();
      closeStore();
    }
    const std::string found = comparableState();
    if (fault.error != 0 && result.process.status == 0) {
      EXPECT_EQ(found, m_after);
    }
    EXPECT_TRUE(found == m_before || found == m_after) << found;
  }

  std::vector<std::string> m_command;
  /// librpm does not give back what it had when its database fails.
  const Support::Environment m_environment = {{"ASAN_OPTIONS", "detect_leaks=0"}};
  fs::path m_template = m_rpm.path() / "template";
  std::vector<SeenCall> m_calls;
  std::string m_before;
  std::string m_after;
  std::size_t m_disturbedCalls = 0;
  std::size_t m_faults = 0;
  std::size_t m_leftOut = 0;
  std::size_t m_kills = 0;
};

constexpr std::size_t slices = 4;

TEST_P(StoreFaults, LeaveAllOrNothingWhenTheyKill) {
  const auto& [operation, slice] = GetParam();
  std::size_t changes = 0;
  for (const SeenCall& call : m_calls) {
    if (!isChange(call) || changes++ % slices != slice)
      continue;
    ++m_disturbedCalls;
    ++m_kills;
    disturb({.call = call, .kind = Fault::Kind::KillBefore});
  }
  EXPECT_GE(changes, operation.leastChanges);
}

TEST_P(StoreFaults, AreFailuresThatChangeNothing) {
  for (std::size_t i = std::get<std::size_t>(GetParam()); i < m_calls.size(); i += slices) {
    const std::vector<int> errors = errorsFor(m_calls[i]);
    // Most calls by far are those of SQLite, which do the same again and again.
    if (isOfTheDatabase(m_calls[i]) && (!isChange(m_calls[i]) || i % 3 != 0)) {
      m_leftOut += errors.size();
      continue;
    }
    ++m_disturbedCalls;
    m_faults += errors.size();
    for (const int error : errors)
      disturb({.call = m_calls[i], .kind = Fault::Kind::Error, .error = error});
  }
}

INSTANTIATE_TEST_SUITE_P(Of, StoreFaults,
                         testing::Combine(testing::Values(Operation{"Installation", false, false, 30},
                                                          Operation{"Update", true, false, 30},
                                                          Operation{"Removal", true, true, 30}),
                                          testing::Range(std::size_t(0), slices)),
                         [](const auto& suite) {
                           return std::get<Operation>(suite.param).name +
                                  std::to_string(std::get<std::size_t>(suite.param));
                         });

} // namespace
