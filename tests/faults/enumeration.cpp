// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/faults/enumeration.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include <signal.h>

namespace {

using Support::Fault;
using Support::SeenCall;
using Support::SupervisedResult;

struct Tally {
  std::size_t faults = 0;
  std::size_t leftOut = 0;
  std::size_t kills = 0;
  std::size_t failures = 0;
};

int failuresSoFar() {
  return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

std::string describe(const Fault& fault) {
  switch (fault.kind) {
  case Fault::Kind::KillBefore:
    return "SIGKILL before it";
  case Fault::Kind::KillAfter:
    return "SIGKILL after it";
  case Fault::Kind::Short:
    return "short";
  case Fault::Kind::Error:
    break;
  }
  return strerrorname_np(fault.error);
}

class Enumerator {
public:
  Enumerator(const Operation& operation, const std::filesystem::path& folder)
      : m_operation(operation), m_folder(folder) {}

  void record() {
    const SupervisedResult undisturbed = run({});
    EXPECT_EQ(undisturbed.unknownCalls, std::set<long>()) << "system_calls.cpp has to learn these";
    m_operation.checkUndisturbed(undisturbed.process);
    m_calls = undisturbed.calls;
    for (const auto& [name, count] : m_operation.atLeast)
      EXPECT_GE(static_cast<std::size_t>(std::ranges::count(m_calls, name, &SeenCall::name)), count) << name;
  }

  void disturbEach() {
    for (const SeenCall& call : m_calls) {
      for (const int error : call.errors) {
        if (m_operation.leaveOut && m_operation.leaveOut(call, error))
          ++m_tally.leftOut;
        else
          disturb({.call = call, .kind = Fault::Kind::Error, .error = error}, m_tally.faults);
      }
      if (call.mayBeShort)
        disturb({.call = call, .kind = Fault::Kind::Short}, m_tally.faults);
      disturb({.call = call, .kind = Fault::Kind::KillBefore}, m_tally.kills);
      disturb({.call = call, .kind = Fault::Kind::KillAfter}, m_tally.kills);
    }
  }

  /// An empty list of calls or errors must not pass as success.
  void expectFaults() const {
    EXPECT_GT(m_tally.faults, 0u);
    EXPECT_EQ(m_tally.kills, 2 * m_calls.size());
  }

  std::string report() const {
    return std::to_string(m_calls.size()) + " calls, " + std::to_string(m_tally.faults) + " faults, " +
           std::to_string(m_tally.leftOut) + " left out, " + std::to_string(m_tally.kills) + " kills, " +
           std::to_string(m_tally.failures) + " failures";
  }

private:
  SupervisedResult run(const std::optional<Fault>& fault) const {
    m_operation.prepare();
    return Support::runSupervised(m_operation.command, m_operation.environment, m_folder, fault);
  }

  void disturb(const Fault& fault, std::size_t& count) {
    const SeenCall& call = fault.call;
    SCOPED_TRACE(call.name + " " + call.path + ", call " + std::to_string(call.number) + " of thread " +
                 std::to_string(call.thread) + ": " + describe(fault));
    const int before = failuresSoFar();
    SupervisedResult result;
    try {
      result = run(fault);
    } catch (const std::runtime_error& error) {
      ADD_FAILURE() << error.what();
    }
    SCOPED_TRACE("it said: " + result.process.output + result.process.errors);
    ++count;
    EXPECT_TRUE(result.metFault) << "the program did not do the same again";
    if (fault.kind == Fault::Kind::KillBefore || fault.kind == Fault::Kind::KillAfter)
      EXPECT_EQ(result.process.status, 128 + SIGKILL);
    else if (fault.kind == Fault::Kind::Short || (fault.error == EINTR && call.isRestartable))
      EXPECT_EQ(result.process.status, 0);
    else
      EXPECT_LT(result.process.status, 128) << "it crashed";
    m_operation.checkDisturbed({.process = result.process, .call = call, .error = fault.error});
    if (failuresSoFar() > before)
      ++m_tally.failures;
  }

  const Operation& m_operation;
  const std::filesystem::path& m_folder;
  std::vector<SeenCall> m_calls;
  Tally m_tally;
};

} // namespace

void Enumeration::SetUp() {
  static const bool can = Support::canSupervise();
  if (!can)
    GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
}

void Enumeration::enumerate(const Operation& operation) const {
  Enumerator enumerator(operation, folder.path());
  enumerator.record();
  if (HasFailure())
    return;
  enumerator.disturbEach();
  enumerator.expectFaults();
  std::cout << testing::UnitTest::GetInstance()->current_test_info()->name() << ": " << enumerator.report()
            << std::endl;
}
