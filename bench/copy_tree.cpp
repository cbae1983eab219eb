// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/copy.h"

#include <exception>
#include <iostream>

/// bench-copy-tree FROM TO: copyDirectory() as a command.
int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: bench-copy-tree FROM TO\n";
    return 2;
  }
  try {
    Common::Filesystem::copyDirectory(argv[1], argv[2]);
    return 0;
  } catch (const std::exception& exception) {
    std::cerr << exception.what() << '\n';
    return 1;
  }
}
