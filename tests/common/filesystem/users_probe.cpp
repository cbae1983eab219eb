// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/locations.h"
#include "tests/support/diagnostics/thrown.h"

#include <filesystem>
#include <iostream>

/// Prints the result of usersHomeDirectories(), one per line, or its error. It is a program of its own, so that a test
/// can preload another group database.
int main() {
  const std::string error = Support::errorOf([] {
    for (const std::filesystem::path& directory : Common::Filesystem::usersHomeDirectories())
      std::cout << directory.native() << '\n';
  });
  std::cout << error << '\n';
  return 0;
}
