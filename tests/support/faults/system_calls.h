// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <span>
#include <vector>

/// What the supervisor of a process knows about Linux.
namespace Support {

/// A system call that has to do with files: where among its arguments the files are, and how it can fail. A position
/// of -1 means that there is none.
struct FileCall {
  struct Place {
    int path = -1;
    /// The descriptor of the file itself, or of the directory from which a relative path goes.
    int descriptor = -1;
  };

  long number;
  const char* name; ///< the one that 64-bit processors have for it
  Place file;
  std::vector<int> errors;
  Place otherFile = {};
};

/// The name of the call that stat(3) makes. Where a time has 32 bits elsewhere, the C library asks with a newer call.
inline constexpr const char* statusCall = sizeof(long) == 4 ? "statx" : "newfstatat";

/// Null when the call is not known to have to do with files.
const FileCall* findFileCall(long number);

/// The errors with which `call` can fail when it is made with these six `arguments`.
std::vector<int> errorsOf(const FileCall& call, const unsigned long long* arguments);

/// The calls that change no file and open none: memory, signals, time, processes and their ends.
std::span<const long> harmlessCalls();

} // namespace Support
