// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store/store_operation.h"
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

using StoreTest::Operation;
using StoreTest::sample;
using Support::Fault;
using Support::SeenCall;

class StoreFaults : public StoreTest::OperationFixture,
                    public testing::WithParamInterface<std::tuple<Operation, std::size_t>> {
protected:
  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
    prepare(std::get<Operation>(GetParam()));
  }

  /// scripts/faults adds up the numbers of these lines.
  void TearDown() override {
    if (!IsSkipped())
      std::cout << testing::UnitTest::GetInstance()->current_test_info()->name() << ": " << m_disturbedCalls
                << " calls, " << m_faults << " faults, " << m_leftOut << " left out, " << m_kills << " kills, "
                << (HasFailure() ? 1 : 0) << " failures" << std::endl;
  }

  static bool isOfTheDatabase(const SeenCall& call) { return call.path.find("/var/lib/rpm") != call.path.npos; }

  /// The errors to inject into a call: all three for a call that changes something, EIO for all others.
  std::vector<int> errorsFor(const SeenCall& call) const {
    std::vector<int> errors = {EIO};
    if (isChange(call) && !isOfTheDatabase(call))
      errors.insert(errors.end(), {ENOSPC, EACCES});
    std::erase_if(errors, [&](int error) { return std::ranges::count(call.errors, error) == 0; });
    return errors;
  }

  void disturb(const Fault& fault) {
    restore();
    const auto result = run(fault);
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

  std::size_t m_disturbedCalls = 0;
  std::size_t m_faults = 0;
  std::size_t m_leftOut = 0;
  std::size_t m_kills = 0;
};

constexpr std::size_t slices = 8;

/// Whether the call with this number is in the slice and in the sample.
bool isDue(std::size_t number, std::size_t slice) {
  return number % slices == slice && (number / slices + slice) % sample == 0;
}

TEST_P(StoreFaults, LeaveAllOrNothingWhenTheyKill) {
  const std::size_t slice = std::get<std::size_t>(GetParam());
  std::size_t changes = 0;
  for (const SeenCall& call : m_calls) {
    if (!isChange(call) || !isDue(changes++, slice))
      continue;
    ++m_disturbedCalls;
    ++m_kills;
    disturb({.call = call, .kind = Fault::Kind::KillBefore});
  }
  EXPECT_GE(changes, 30);
}

TEST_P(StoreFaults, AreFailuresThatChangeNothing) {
  for (std::size_t i = 0; i < m_calls.size(); ++i) {
    if (!isDue(i, std::get<std::size_t>(GetParam())))
      continue;
    const std::vector<int> errors = errorsFor(m_calls[i]);
    // Most calls are those of SQLite, which repeats the same few.
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
                         testing::Combine(testing::Values(Operation::Installation, Operation::Update,
                                                          Operation::Removal),
                                          testing::Range(std::size_t(0), slices)),
                         [](const auto& suite) {
                           return StoreTest::nameOf(std::get<Operation>(suite.param)) +
                                  std::to_string(std::get<std::size_t>(suite.param));
                         });

} // namespace
