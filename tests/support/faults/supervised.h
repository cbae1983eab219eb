// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Support {

/// A system call on a file of the watched folder.
struct SeenCall {
  std::string name;
  std::string path;
  std::vector<int> errors; ///< with which it can fail
  /// Which thread, of whichever process, in the order of their first calls, and which of its calls it is, from 0.
  /// Threads run side by side, but each does the same in every run.
  std::size_t thread;
  std::size_t number;
};

/// What befalls one of the calls that an undisturbed run makes on files of the watched folder.
struct Fault {
  enum class Kind {
    Error,      ///< the call is not made and fails with `error`; a file that is closed is closed all the same
    KillBefore, ///< SIGKILL instead of the call
    KillAfter,  ///< SIGKILL at the thread's next system call of any kind
  };

  SeenCall call;
  Kind kind;
  int error = 0;
};

struct SupervisedResult {
  ProcessResult process;
  std::vector<SeenCall> calls;
  bool metFault = false; ///< whether the call that it is for was made again
  /// Numbers of the calls, on whatever, of which it is not known whether they have to do with files.
  std::set<long> unknownCalls;
};

/// Whether this kernel, and whatever confines this process, allows runSupervised(): seccomp's user notification, which
/// needs neither privileges nor ptrace.
bool canSupervise();

/// Runs a program to its end and sees each of its system calls before the kernel does, also those that the C library
/// makes on its own behalf. A call is on a file of `folder` when its path, or the path of its descriptor, contains the
/// name of the folder, which therefore has to be unmistakable; a path below /proc/self names a descriptor. Throws
/// std::runtime_error when the program makes no call for 20 seconds. `beforeCall` is called with each call on a file of
/// the folder before the kernel makes it; the calling thread of the program waits meanwhile, so this is the place to
/// change something behind its back.
SupervisedResult runSupervised(const std::vector<std::string>& arguments, const Environment& environment,
                               const std::filesystem::path& folder, const std::optional<Fault>& fault = {},
                               const std::function<void(const SeenCall&)>& beforeCall = {});

} // namespace Support
