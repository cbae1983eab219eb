// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Support {

/// A new folder; the destructor removes it with its content.
class TempDirectory {
public:
  TempDirectory();
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return m_path / name; }

private:
  std::filesystem::path m_path;
};

/// The content of a file. Throws if it cannot be read.
std::string readFile(const std::filesystem::path& path);

/// Creates or replaces a file, with its missing parent directories. Throws if it cannot be written.
void writeFile(const std::filesystem::path& path, std::string_view content);

} // namespace Support
