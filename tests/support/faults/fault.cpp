// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/faults/fault.h"

#include "tests/support/process/preload.h"

namespace Support {

namespace {

Environment faultAt(const std::string& call, const std::string& number, const std::string& what,
                    const std::string& path) {
  Environment environment = preloading(KRV_FAULT_SHIM);
  environment["KRV_FAULT"] = call + " " + number + " " + what + " " + path;
  return environment;
}

} // namespace

Environment fault(const std::string& call, int nth, const std::string& what, const std::string& path) {
  return faultAt(call, std::to_string(nth), what, path);
}

Environment faultFrom(const std::string& call, int nth, const std::string& what, const std::string& path) {
  return faultAt(call, std::to_string(nth) + "+", what, path);
}

Environment withoutSyncs() {
  return preloading(KRV_NO_SYNC_SHIM);
}

} // namespace Support
