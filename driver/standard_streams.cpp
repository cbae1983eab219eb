// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/standard_streams.h"

#include <initializer_list>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

void openStandardStreams() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is taken, and those below are open by now.
    if (fcntl(number, F_GETFD) < 0)
      open("/dev/null", O_RDWR);
  }
}

void ignoreWriteSignals() {
  // An empty handler would spare the programs that librpm starts for its macros. But librpm puts its own in the place
  // of any handler while its database is open, and that one ends the process. An ignored signal it leaves alone.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}
