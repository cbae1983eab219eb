// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/locations.h"
#include "tests/support/diagnostics/thrown.h"

#include <filesystem>
#include <iostream>

/// Prints what usersHomeDirectories() returns, a line each, or its error. A program, so that a test can put another
/// group database in front of it.
int main() {
  const std::string error = Support::errorOf([] {
    for (const std::filesystem::path& directory : Common::Filesystem::usersHomeDirectories())
      std::cout << directory.native() << '\n';
  });
  std::cout << error << '\n';
  return 0;
}
