// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// A library for LD_PRELOAD in krv-sandbox-service: every sync succeeds and does nothing. A test of power losses that
// finds no loss with it is no test.
#include <unistd.h>

extern "C" {

int fsync(int) {
  return 0;
}

int fdatasync(int) {
  return 0;
}

int syncfs(int) noexcept {
  return 0;
}

void sync() noexcept {}
}
