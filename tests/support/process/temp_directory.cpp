// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/temp_directory.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

namespace Support {

TempDirectory::TempDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "krv-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), name);
  m_path = name;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file)
    throw std::system_error(errno, std::generic_category(), path.string());
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::create_directories(std::filesystem::absolute(path).parent_path());
  std::ofstream file(path, std::ios::binary);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.close();
  if (!file)
    throw std::system_error(errno, std::generic_category(), path.string());
}

} // namespace Support
