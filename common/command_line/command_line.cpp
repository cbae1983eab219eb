// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/command_line.h"

#include <cstdlib>
#include <iostream>

namespace Common {

std::optional<int> parseCommandLine(CLI::App& app, int count, char** arguments) {
  app.set_version_flag("--version", app.get_name() + " " KRV_VERSION);
  try {
    app.parse(count, arguments);
    return std::nullopt;
  } catch (const CLI::Success& request) {
    app.exit(request);
    std::cout.flush();
    return std::cout ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const CLI::ParseError& error) {
    std::cerr << app.get_name() << ": " << error.what() << "\nTry: " << app.get_name() << " --help\n";
    return 2;
  }
}

} // namespace Common
