// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <filesystem>
#include <thread>

namespace Support {

/// Holds a write lease on a file, like a file server, and releases it when the file is opened. No other process may
/// have the file open. Ignores SIGIO in this process from then on.
class WriteLease {
public:
  explicit WriteLease(const std::filesystem::path& path);
  ~WriteLease();
  WriteLease(const WriteLease&) = delete;
  WriteLease& operator=(const WriteLease&) = delete;

  /// Whether the file system supports leases. If not, no lease is held.
  bool isHeld() const { return m_isHeld; }
  /// Whether the file was opened since.
  bool wasBroken() const { return m_wasBroken; }

private:
  int m_file;
  bool m_isHeld;
  std::atomic<bool> m_wasBroken = false;
  std::jthread m_watcher;
};

} // namespace Support
