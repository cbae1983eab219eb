// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/faults/supervised.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <signal.h>

/// One run of an operation with a fault.
struct Disturbed {
  Support::ProcessResult process;
  Support::SeenCall call; ///< the call with the fault
  int error;              ///< the errno of the call; 0 if the call was short or the process was killed

  bool wasKilled() const { return process.status == 128 + SIGKILL; }
};

/// An operation of a program on the files of a folder, and the checks after it.
struct Operation {
  std::vector<std::string> command;
  Support::Environment environment = {};
  /// Prepares the folder before each run.
  std::function<void()> prepare;
  /// Checks the folder and the result after a run without a fault.
  std::function<void(const Support::ProcessResult&)> checkUndisturbed;
  std::function<void(const Disturbed&)> checkDisturbed;
  /// The minimum number of each system call on files of the folder in one run.
  std::map<std::string, std::size_t> atLeast;
  /// True for errors that the operation, or a library that it uses, is known not to survive.
  std::function<bool(const Support::SeenCall&, int error)> leaveOut = {};
};

/// Tests an operation with every fault at every system call.
class Enumeration : public testing::Test {
protected:
  void SetUp() override;

  /// Runs `operation` once to record its system calls on files of the folder. Then runs it once for each error of each
  /// call, once with each call that may be short being short, and twice for each call with a SIGKILL just before and
  /// just after it. A short call and an interrupted one that can be made again must not fail the operation. Prints the
  /// number of runs.
  void enumerate(const Operation& operation) const;

  Support::TempDirectory folder;
};
