// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/preload.h"

#include "tests/support/process/temp_directory.h"

#include <cstdlib>
#include <string>

namespace Support {

Environment preloading(const std::filesystem::path& library) {
  // The loader takes a space or a colon for the end of a name, and the project may lie in a folder with one.
  static const TempDirectory links;
  const std::filesystem::path link = links / library.filename();
  if (!std::filesystem::exists(link))
    std::filesystem::create_symlink(library, link);
  // AddressSanitizer refuses by default to start behind another preloaded library.
  const char* options = std::getenv("ASAN_OPTIONS");
  return {{"LD_PRELOAD", link.string()},
          {"ASAN_OPTIONS", (options != nullptr ? options + std::string(":") : "") + "verify_asan_link_order=0"}};
}

} // namespace Support
