// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/temp_folder.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace ImageCheck {

TempFolder::TempFolder() {
  std::string model = std::filesystem::temp_directory_path() / "krv-image-check-XXXXXX";
  if (mkdtemp(model.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), model);
  m_path = model;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

} // namespace ImageCheck
