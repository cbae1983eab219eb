// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Support {

/// The variables that a child process gets in addition to its parent's; a variable without a value is removed.
using Environment = std::map<std::string, std::optional<std::string>>;

struct ProcessResult {
  int status; ///< exit status, or 128 + signal number
  std::string output;
  std::string errors;
};

/// A running child process with its standard output and error in files. The destructor kills it, if it still runs, and
/// reaps it.
class Process {
public:
  /// Starts `arguments[0]`, looked up in PATH, with /dev/null as standard input. `beforeStart` is called in the child
  /// before exec and may only make system calls.
  explicit Process(const std::vector<std::string>& arguments, const Environment& environment = {},
                   const std::filesystem::path& workingDirectory = ".", const std::function<void()>& beforeStart = {});
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t id() const { return m_id; }
  void signal(int number) const;
  bool isRunning();
  std::string outputSoFar() const;

  /// Waits for the end. After the deadline it kills the process and throws.
  ProcessResult wait();

private:
  pid_t m_id = -1;
  std::optional<int> m_status;
  int m_output = -1;
  int m_errors = -1;
};

/// Runs a program to its end.
ProcessResult run(const std::vector<std::string>& arguments, const Environment& environment = {},
                  const std::filesystem::path& workingDirectory = ".");

/// Runs a program and returns its standard output. If it fails, throws with its whole output.
std::string runOrThrow(const std::vector<std::string>& arguments, const Environment& environment = {});

/// The executable `name` of this build.
std::filesystem::path program(const std::string& name);

} // namespace Support
