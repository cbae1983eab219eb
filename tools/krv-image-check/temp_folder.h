// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace ImageCheck {

/// A new folder that only this user can enter; the destructor removes it with its content.
class TempFolder {
public:
  /// Throws std::system_error, and std::filesystem::filesystem_error if there is no folder for temporary files.
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

private:
  std::filesystem::path m_path;
};

} // namespace ImageCheck
