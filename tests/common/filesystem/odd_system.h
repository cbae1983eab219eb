// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include <grp.h>
#include <sys/types.h>

/// Functions of the C library that this test program replaces. Unless a test sets a replacement, they call the system.
struct OddSystem {
  std::function<ssize_t(const char* name, void* value, size_t size)> getxattr; ///< both variants: by path and by
                                                                               ///< descriptor
  std::function<ssize_t(char* list, size_t size)> listxattr;                   ///< both variants: by path and by
                                                                               ///< descriptor
  std::function<int(const char* path, const char* name, const void* value, size_t size, int flags)> lsetxattr;
  std::function<ssize_t(int from, int to, size_t size)> copyFileRange;
  std::function<ssize_t(int descriptor, void* buffer, size_t size)> read;
  std::function<int(int descriptor, int mode, off_t offset, off_t size)> fallocate;
  std::function<int(const char* path, int flags, mode_t mode)> open; ///< only calls of the program itself
  std::function<int(int descriptor)> close;
  std::function<ssize_t(void* buffer, size_t size, unsigned flags)> getrandom;
  std::function<group*(const char* name)> getgrnam;
};

OddSystem& oddSystem();

/// The system's own calls.
int reallyFallocate(int descriptor, int mode, off_t offset, off_t size);
int reallyOpen(const char* path, int flags, mode_t mode);

/// Sets errno and returns -1.
int failing(int error);
