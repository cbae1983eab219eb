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
  std::string otherPath;   ///< of a call with two paths
  bool opensReadOnly;      ///< whether it opens a file, only to read it
  std::vector<int> errors; ///< with which it can fail
  bool mayBeShort;         ///< whether it reads or writes and may stop after fewer bytes
  bool isRestartable;      ///< whether it has to be made again if it fails with EINTR
  /// Which thread, of whichever process, in the order of their first calls, and which of its calls it is, from 0.
  /// Threads run side by side, but each does the same in every run.
  std::size_t thread;
  std::size_t number;
  pid_t process; ///< the one that was started, also when another process makes the call
};

/// What a test does before the kernel makes a call. The calling thread of the program waits meanwhile, so this is the
/// place to change something behind its back. Returns 0, or the errno with which the call fails instead of being made.
using BeforeCall = std::function<int(const SeenCall&)>;

/// Calls `action` before the `nth` call, counted from 1, whose name begins with `name` ("open" for openat) on a path
/// that fits the shell pattern `path`.
BeforeCall beforeNth(const std::string& name, int nth, const std::string& path, BeforeCall action);
/// The same call fails with `error`.
BeforeCall failNth(const std::string& name, int nth, const std::string& path, int error);

/// What befalls one of the calls that an undisturbed run makes on files of the watched folder.
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

/// Runs a program to its end and sees each of its system calls before the kernel does, also those that the C library
/// makes on its own behalf. A call is on a file of `folder` when its path, or the path of its descriptor, contains the
/// name of the folder, which therefore has to be unmistakable; with "/" all calls that take a file are seen. A path
/// below /proc/self names a descriptor. Throws std::runtime_error when the program makes no call for 20 seconds.
/// `beforeCall` is called with each call on a file of the folder.
SupervisedResult runSupervised(const std::vector<std::string>& arguments, const Environment& environment,
                               const std::filesystem::path& folder, const std::optional<Fault>& fault = {},
                               const BeforeCall& beforeCall = {});

} // namespace Support
