// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"

#include <iostream>
#include <string_view>

namespace {

using Core::KRV::Registry;
using Core::KRV::RegistryRecord;

/// Copies each record and drops the copy.
bool read() {
  std::size_t count = 0;
  const bool done = Registry().foreachRecord([&](const RegistryRecord& record) {
    const RegistryRecord copy = record;
    if (!copy.packageId.empty())
      ++count;
  });
  std::cout << count << '\n';
  return done;
}

/// Adds a record with a package and a key that are not in the registry, so nothing is pruned.
bool write() {
  return Registry().writeRecord({RegistryRecord::Event::Install, 1700000000, "new-application", "new-key", {}});
}

} // namespace

/// bench-registry read|write: one operation on the registry under KRV_ROOT_FS.
int main(int argc, char** argv) {
  const std::string_view operation = argc == 2 ? argv[1] : "";
  if (operation != "read" && operation != "write") {
    std::cerr << "usage: bench-registry read|write\n";
    return 2;
  }
  return (operation == "read" ? read() : write()) ? 0 : 1;
}
