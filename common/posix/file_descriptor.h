// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include <unistd.h>

namespace Common::Posix {

/// Owns a file descriptor and closes it. A negative number means no descriptor. Assigning swaps the two descriptors.
class FileDescriptor {
public:
  explicit FileDescriptor(int number = -1) : m_number(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(m_number, other.m_number);
    return *this;
  }
  ~FileDescriptor() {
    if (m_number >= 0)
      ::close(m_number);
  }

  int get() const { return m_number; }
  explicit operator bool() const { return m_number >= 0; }

  /// Closes the descriptor. Returns the result of close(2) and leaves its errno: after writing, a full disk may be
  /// reported only here.
  [[nodiscard]] int close() { return ::close(std::exchange(m_number, -1)); }

private:
  int m_number;
};

} // namespace Common::Posix
