// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include <iostream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

/// bench-peak-memory COMMAND...: runs the command, discards its standard output, and prints its peak memory in KiB
/// (ru_maxrss of getrusage(2)).
int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: bench-peak-memory COMMAND...\n";
    return 2;
  }
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    execvp(argv[1], argv + 1);
    _exit(127);
  }
  int status = 0;
  rusage usage = {};
  if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0)
    return 1;
  std::cout << usage.ru_maxrss << '\n';
  return 0;
}
