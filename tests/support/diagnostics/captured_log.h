// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace Support {

/// Collects what the process writes to its standard output, at the file descriptor, from the object's making until
/// text() or its end. Nothing is flushed on the writer's behalf while it collects.
class CapturedLog {
public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  /// What has reached the descriptor so far. The capture goes on.
  std::string text() const;

private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file;
  int m_standardOutput;
};

} // namespace Support
