// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/extraction/extract_tree.h"

#include <exception>
#include <iostream>

#include <sys/resource.h>

/// extract-package PACKAGE FOLDER: unpacks a package into an empty folder. Prints its peak memory in KiB.
int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: extract-package PACKAGE FOLDER\n";
    return 2;
  }
  try {
    auto archive = Common::Rpm::ArchiveReader::openForExtraction(argv[1]);
    Support::extractTree(archive, argv[2]);
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    std::cout << usage.ru_maxrss << '\n';
    return 0;
  } catch (const std::exception& exception) {
    std::cerr << exception.what() << '\n';
    return 1;
  }
}
