// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/standard_streams.h"

#include <initializer_list>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

void openStandardStreams() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // open() takes the lowest free number; all lower numbers are open at this point.
    if (fcntl(number, F_GETFD) < 0)
      open("/dev/null", O_RDWR);
  }
}

void ignoreWriteSignals() {
  // With an empty handler, the programs that librpm starts for its macros would keep the default action. But while its
  // database is open, librpm replaces every handler by its own, which ends the process. It does not replace SIG_IGN.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}
