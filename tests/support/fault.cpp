// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/fault.h"

#include <cstdlib>

namespace Support {

Environment fault(const std::string& call, int nth, const std::string& what, const std::string& path) {
  // AddressSanitizer refuses by default to start behind another preloaded library.
  const char* options = std::getenv("ASAN_OPTIONS");
  return {{"LD_PRELOAD", KRV_FAULT_SHIM},
          {"KRV_FAULT", call + " " + std::to_string(nth) + " " + what + " " + path},
          {"ASAN_OPTIONS", (options != nullptr ? options + std::string(":") : "") + "verify_asan_link_order=0"}};
}

} // namespace Support
