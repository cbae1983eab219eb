// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <vector>

/// The supervisor's knowledge of Linux system calls.
namespace Support {

/// A system call on files: the positions of the files in its arguments, and its errors. -1 means that there is no such
/// argument.
struct FileCall {
  struct Place {
    int path = -1;
    /// The descriptor of the file, or of the directory of a relative path.
    int descriptor = -1;
  };

  long number;
  const char* name; ///< the name on 64-bit processors
  Place file;
  std::vector<int> errors;
  Place otherFile = {};
};

/// The system call that stat(3) makes. On 32-bit processors the C library uses a newer call with 64-bit times.
inline constexpr const char* statusCall = sizeof(long) == 4 ? "statx" : "newfstatat";

/// Null if the call is not known to use files.
const FileCall* findFileCall(long number);

/// The errors with which `call` can fail when it is made with these six `arguments`.
std::vector<int> errorsOf(const FileCall& call, const unsigned long long* arguments);

/// Whether `call` with these arguments reads or writes and may stop after fewer bytes. Of the calls with several
/// buffers only writev(2) is known.
bool mayBeShort(const FileCall& call, const unsigned long long* arguments);

/// Whether the caller must repeat `call` if a signal interrupts it: it reads, writes or waits for a lock.
bool isRestartable(const FileCall& call, const unsigned long long* arguments);

/// Whether `call` with these arguments opens a file only for reading.
bool opensReadOnly(const FileCall& call, const unsigned long long* arguments);

/// The calls that neither change nor open files: memory, signals, time, processes.
std::span<const long> harmlessCalls();

} // namespace Support
