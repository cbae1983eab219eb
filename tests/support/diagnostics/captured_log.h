// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace Support {

/// Captures the process's standard output at the file descriptor, from construction until text() or destruction. It
/// never flushes the writer's buffers while it captures.
class CapturedLog {
public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  /// The output so far. The capture continues.
  std::string text() const;

private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file;
  int m_standardOutput;
};

} // namespace Support
