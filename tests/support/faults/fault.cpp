// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/faults/fault.h"

#include "tests/support/process/preload.h"

namespace Support {

Environment fault(const std::string& call, int nth, const std::string& what, const std::string& path) {
  Environment environment = preloading(KRV_FAULT_SHIM);
  environment["KRV_FAULT"] = call + " " + std::to_string(nth) + " " + what + " " + path;
  return environment;
}

} // namespace Support
