// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <system_error>

namespace Support {

/// Changes the working directory to `folder` for its lifetime.
class ScopedWorkingDirectory {
public:
  explicit ScopedWorkingDirectory(const std::filesystem::path& folder) : m_before(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
  }
  ~ScopedWorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(m_before, ignored);
  }
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;

private:
  std::filesystem::path m_before;
};

} // namespace Support
