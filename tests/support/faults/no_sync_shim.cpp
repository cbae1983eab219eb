// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// A library for LD_PRELOAD with which nothing is ever synced: every call that waits for the disk does nothing and
// succeeds. A test of power losses must fail for a program that it is loaded into.

#include <fcntl.h>
#include <sys/mman.h>
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

int sync_file_range(int, off64_t, off64_t, unsigned) {
  return 0;
}

int msync(void*, size_t, int) {
  return 0;
}

} // extern "C"
