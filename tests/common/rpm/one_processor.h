// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include <sched.h>

namespace ArchiveTest {

/// Restricts the process to one of its processors.
class OneProcessor {
public:
  /// Whether the process may use only one processor anyway.
  static bool isAll() {
    const cpu_set_t processors = allowedProcessors();
    return CPU_COUNT(&processors) == 1;
  }

  OneProcessor() : m_before(allowedProcessors()) {
    std::size_t number = 0;
    while (CPU_ISSET(number, &m_before) == 0)
      ++number;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(number, &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof m_before, &m_before); }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

private:
  static cpu_set_t allowedProcessors() {
    cpu_set_t processors;
    sched_getaffinity(0, sizeof processors, &processors);
    return processors;
  }

  cpu_set_t m_before;
};

} // namespace ArchiveTest
