// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include <unistd.h>

namespace Common::Filesystem {

/// Owns a file descriptor. For the sources of this folder only.
class Descriptor {
public:
  explicit Descriptor(int number) : m_number(number) {}
  ~Descriptor() {
    if (m_number >= 0)
      ::close(m_number);
  }
  Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int number() const { return m_number; }
  /// For what was written: a full disk may show itself here only.
  int close() { return ::close(std::exchange(m_number, -1)); }

private:
  int m_number;
};

} // namespace Common::Filesystem
