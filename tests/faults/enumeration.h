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

/// One disturbed run of an operation.
struct Disturbed {
  Support::ProcessResult process;
  Support::SeenCall call; ///< the call that was disturbed
  int error;              ///< the errno it failed with; 0 when the process was killed

  bool wasKilled() const { return error == 0; }
};

/// Something that a program does to the files of a folder, and what has to be true after it was disturbed.
struct Operation {
  std::vector<std::string> command;
  Support::Environment environment = {};
  /// Puts the folder into the state in which each run finds it.
  std::function<void()> prepare;
  /// Looks at the folder and at the result after a run that nothing disturbed.
  std::function<void(const Support::ProcessResult&)> checkUndisturbed;
  std::function<void(const Disturbed&)> checkDisturbed;
  /// The calls on files of the folder that one run cannot do without, and how many of each.
  std::map<std::string, std::size_t> atLeast;
  /// Says of which errors it is known that the operation, or a library behind it, does not survive them.
  std::function<bool(const Support::SeenCall&, int error)> leaveOut = {};
};

/// A test of an operation: every fault at every system call.
class Enumeration : public testing::Test {
protected:
  void SetUp() override;

  /// Runs `operation` once to see its system calls on files of the folder. Then once for every error that each of them
  /// can give, and twice for each call with a SIGKILL just before and just after it. Says in a line how many that were.
  void enumerate(const Operation& operation) const;

  Support::TempDirectory folder;
};
