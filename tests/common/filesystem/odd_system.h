// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include <grp.h>
#include <sys/types.h>

/// Calls of the C library that this test program answers itself as soon as a test gives them an answer. Until then
/// they reach the system.
struct OddSystem {
  std::function<ssize_t(const char* name, void* value, size_t size)> getxattr; ///< by path or descriptor
  std::function<ssize_t(char* list, size_t size)> listxattr;                   ///< by path or descriptor
  std::function<int(const char* path, const char* name, const void* value, size_t size, int flags)> lsetxattr;
  std::function<ssize_t(int from, int to, size_t size)> copyFileRange;
  std::function<int(const char* path, int flags, mode_t mode)> open; ///< what the program opens itself
  std::function<int(int descriptor)> close;
  std::function<ssize_t(void* buffer, size_t size, unsigned flags)> getrandom;
  std::function<group*(const char* name)> getgrnam;
};

OddSystem& oddSystem();

/// The system's own open(2).
int reallyOpen(const char* path, int flags, mode_t mode);

/// What a system call answers when it fails.
int failing(int error);
