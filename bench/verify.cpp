// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include <rpmsign-external/package_signatures.h>

#include <iostream>

/// bench-verify PACKAGE CA-DIR: fails unless all signatures of the package verify.
int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: bench-verify PACKAGE CA-DIR\n";
    return 2;
  }
  const auto package = PackageSignatures::FileWithCmses::fromPath(argv[1]);
  return package != nullptr && package->verifyCmses(argv[2]) ? 0 : 1;
}
