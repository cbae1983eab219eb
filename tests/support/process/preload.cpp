// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/preload.h"

#include "tests/support/process/temp_directory.h"

#include <cstdlib>
#include <string>

namespace Support {

Environment preloading(const std::filesystem::path& library) {
  // The loader splits the list at spaces and colons, and the path of the project may contain them.
  static const TempDirectory links;
  const std::filesystem::path link = links / library.filename();
  if (!std::filesystem::exists(link))
    std::filesystem::create_symlink(library, link);
  // By default AddressSanitizer refuses to start if another library is preloaded before it.
  const char* options = std::getenv("ASAN_OPTIONS");
  return {{"LD_PRELOAD", link.string()},
          {"ASAN_OPTIONS", (options != nullptr ? options + std::string(":") : "") + "verify_asan_link_order=0"}};
}

} // namespace Support
