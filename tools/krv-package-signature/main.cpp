// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/options.h"

#include <cstdlib>
#include <exception>
#include <iostream>

namespace {

bool perform(const Options& options) {
  switch (options.command) {
  case Command::Help:
    std::cout << helpText;
    return true;
  case Command::Sign:
    return sign(options);
  case Command::Show:
    return show(options);
  case Command::Verify:
    return verify(options);
  }
  return false;
}

} // namespace

int main(int count, char** arguments) {
  try {
    const bool allDone = perform(parseOptions(count, arguments));
    std::cout.flush();
    if (!std::cout)
      std::cerr << "krv-package-signature: standard output cannot be written\n";
    return allDone && std::cout ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const UsageError& error) {
    std::cerr << "krv-package-signature: " << error.what() << "\nTry: krv-package-signature --help\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "krv-package-signature: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
