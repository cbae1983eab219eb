// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/reader.h"

#include <exception>
#include <iostream>

/// bench-read-headers PACKAGE...: prints the tags that the tool reads from each header, in the format of rpm -qp.
int main(int argc, char** argv) {
  try {
    for (int i = 1; i < argc; ++i) {
      const Common::Rpm::Reader reader(argv[i]);
      std::cout << reader.tag(Common::Rpm::Tag::Name) << '-' << reader.tag(Common::Rpm::Tag::Version) << '-'
                << reader.tag(Common::Rpm::Tag::Release) << '\n';
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
