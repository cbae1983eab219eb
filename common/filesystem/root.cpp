// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/root.h"

#include <cstdlib>

namespace Common::Filesystem {

std::filesystem::path rootDirectory() {
  const char* root = std::getenv("KRV_ROOT_FS");
  return root != nullptr ? root : "/";
}

} // namespace Common::Filesystem
