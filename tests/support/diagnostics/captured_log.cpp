// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/diagnostics/captured_log.h"

#include <gtest/gtest.h>

#include <iostream>
#include <stdexcept>

#include <unistd.h>

namespace Support {

CapturedLog::CapturedLog() : m_file(std::tmpfile(), &std::fclose) {
  std::cout.flush();
  std::fflush(stdout);
  m_standardOutput = dup(STDOUT_FILENO);
  if (!m_file || m_standardOutput < 0 || dup2(fileno(m_file.get()), STDOUT_FILENO) < 0)
    throw std::runtime_error("standard output cannot be captured");
}

CapturedLog::~CapturedLog() {
  std::cout.flush();
  std::fflush(stdout);
  dup2(m_standardOutput, STDOUT_FILENO);
  close(m_standardOutput);
  // The report of a failed expectation is on standard output too.
  if (testing::Test::HasFailure())
    std::cout << text();
}

std::string CapturedLog::text() const {
  std::string collected;
  char buffer[4096];
  off_t offset = 0;
  while (const ssize_t count = pread(fileno(m_file.get()), buffer, sizeof buffer, offset)) {
    if (count < 0)
      throw std::runtime_error("captured output cannot be read");
    collected.append(buffer, static_cast<std::size_t>(count));
    offset += count;
  }
  return collected;
}

} // namespace Support
