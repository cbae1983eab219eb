// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

namespace Support {

/// Sets the umask of this process and its children in its scope.
class ScopedMask {
public:
  explicit ScopedMask(mode_t mask) : m_before(umask(mask)) {}
  ~ScopedMask() { umask(m_before); }
  ScopedMask(const ScopedMask&) = delete;
  ScopedMask& operator=(const ScopedMask&) = delete;

private:
  mode_t m_before;
};

} // namespace Support
