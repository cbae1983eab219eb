// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Support {

/// A fresh folder that goes, with all that is in it, when the object does.
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

/// The bytes of a file. Throws when it cannot be read.
std::string readFile(const std::filesystem::path& path);

/// Makes or replaces a file, with its missing parent directories. Throws when it cannot be written.
void writeFile(const std::filesystem::path& path, std::string_view content);

} // namespace Support
