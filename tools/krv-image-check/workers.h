// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ImageCheck {

/// Thrown when a signal asks the program to end.
struct Interrupted {
  int signal;
};

struct WorkerPlan {
  std::size_t count;                              ///< of the pieces of work
  unsigned jobs;                                  ///< the largest number of processes at a time
  std::function<std::string(std::size_t)> work;   ///< called in a worker process; its result may hold any byte
  std::function<void(std::size_t)> progress = {}; ///< called in this process with the number of finished pieces
  unsigned cpuSeconds = 600;                      ///< of the processor for one piece
};

/// Does each piece of work in one of several forked processes and returns the results in the order of the pieces.
/// Nothing for a piece at which its process died: it crashed, needed too much memory or time, or threw an exception.
/// The processes have no standard output and error, because what they call prints text from packages. Throws
/// std::system_error if no process can be started, and Interrupted. This process must have only one thread.
std::vector<std::optional<std::string>> doInWorkers(const WorkerPlan& plan);

/// From now on SIGHUP, SIGINT and SIGTERM make doInWorkers() throw Interrupted.
void noticeSignals();

} // namespace ImageCheck
