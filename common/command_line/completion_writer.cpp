// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/command_line.h"
#include "common/command_line/described_command.h"

#include <cstdlib>
#include <iostream>
#include <string_view>

namespace Common {

/// Linked instead of the function that parses. A program with it writes its completion script for the shell that its
/// only argument names, and so the script has exactly the options that the real program parses.
std::optional<int> parseCommandLine(CLI::App& app, int count, char** arguments) {
  app.set_version_flag("--version");
  const DescribedCommand program = describe(app);
  const std::string_view shell = count == 2 ? arguments[1] : "";
  if (shell == "bash")
    std::cout << bashCompletion(program);
  else if (shell == "fish")
    std::cout << fishCompletion(program);
  else if (shell == "zsh")
    std::cout << zshCompletion(program);
  else
    return 2;
  std::cout.flush();
  return std::cout ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace Common
