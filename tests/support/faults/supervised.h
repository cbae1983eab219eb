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

#include <sys/types.h>

namespace Support {

/// A system call on a file of the watched folder.
struct SeenCall {
  std::string name;
  std::string path;
  std::string otherPath;   ///< the second path of a call with two paths
  bool opensReadOnly;      ///< whether it opens a file only for reading
  std::vector<int> errors; ///< the errors with which it can fail
  bool mayBeShort;         ///< whether it reads or writes and may stop after fewer bytes
  bool isRestartable;      ///< whether the caller must repeat it if it fails with EINTR
  /// The number of the thread, over all processes, in the order of their first calls, and the index of the call in the
  /// thread. Threads run in parallel, but each makes the same calls in every run.
  std::size_t thread;
  std::size_t number;
  pid_t process; ///< the started process, even if another process makes the call
};

/// An action of a test before the kernel makes a call. The calling thread of the program waits meanwhile, so the action
/// may change files between two calls. Returns 0, or the errno with which the call fails without being made.
using BeforeCall = std::function<int(const SeenCall&)>;

/// An action that calls `action` before the `nth` call, counted from 1, whose name begins with `name` ("open" for
/// openat) on a path that matches the shell pattern `path`.
BeforeCall beforeNth(const std::string& name, int nth, const std::string& path, BeforeCall action);
/// An action that makes this call fail with `error`.
BeforeCall failNth(const std::string& name, int nth, const std::string& path, int error);

/// The fault at one of the calls that a run without faults makes on files of the watched folder.
struct Fault {
  enum class Kind {
    Error,      ///< the call fails with `error` and is not made; close(2) closes the file nevertheless
    Short,      ///< the call, which may be short, reads or writes one byte
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
  bool metFault = false; ///< whether the call was made again and got the fault
  /// Numbers of the calls of which it is not known whether they use files.
  std::set<long> unknownCalls;
};

/// Whether the kernel and this process's confinement allow runSupervised(). It uses seccomp's user notification, which
/// needs neither privileges nor ptrace.
bool canSupervise();

/// Runs a program to its end and intercepts each of its system calls before the kernel makes it, also the C library's
/// own calls. A call is on a file of `folder` if its path, or the path of its descriptor, contains the name of the
/// folder, so the name must be unique; with "/" all calls on files are seen. A path below /proc/self stands for a
/// descriptor. Throws std::runtime_error if the program makes no call for 20 seconds. `beforeCall` is called before
/// each call on a file of the folder.
SupervisedResult runSupervised(const std::vector<std::string>& arguments, const Environment& environment,
                               const std::filesystem::path& folder, const std::optional<Fault>& fault = {},
                               const BeforeCall& beforeCall = {});

} // namespace Support
