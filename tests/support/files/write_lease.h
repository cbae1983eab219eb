// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <filesystem>
#include <thread>

namespace Support {

/// Holds a write lease on a file, as a file server does, and gives it up as soon as somebody opens the file. For a file
/// that nobody else has open, and a process without a use for SIGIO, which is ignored from then on.
class WriteLease {
public:
  explicit WriteLease(const std::filesystem::path& path);
  ~WriteLease();
  WriteLease(const WriteLease&) = delete;
  WriteLease& operator=(const WriteLease&) = delete;

  /// Whether this file system knows leases. Nothing is held where it does not.
  bool isHeld() const { return m_isHeld; }
  /// Whether somebody has opened the file since.
  bool wasBroken() const { return m_wasBroken; }

private:
  int m_file;
  bool m_isHeld;
  std::atomic<bool> m_wasBroken = false;
  std::jthread m_watcher;
};

} // namespace Support
