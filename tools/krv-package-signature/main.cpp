// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/command_line.h"
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/options.h"
#include "tools/krv-package-signature/packages.h"

#include <cstdlib>
#include <exception>
#include <iostream>

namespace {

int perform(bool (*command)(const Options&), const Options& options) {
  const bool allDone = command(options);
  std::cout.flush();
  if (!std::cout)
    complain("standard output cannot be written");
  return allDone && std::cout ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int count, char** arguments) {
  try {
    Options options;
    CLI::App app("Sign the packages of a system image, show their signatures and verify them.",
                 "krv-package-signature");
    app.footer("Exit status: 0 all done, 1 a package failed (the others are done), 2 wrong usage.");
    app.require_subcommand(1);
    const CLI::App* const signCommand = addSign(app, options);
    const CLI::App* const showCommand = addShow(app, options);
    addVerify(app, options);
    if (const auto status = Common::parseCommandLine(app, count, arguments))
      return *status;
    return perform(app.got_subcommand(signCommand) ? sign : app.got_subcommand(showCommand) ? show : verify, options);
  } catch (const std::exception& error) {
    complain(error.what());
    return EXIT_FAILURE;
  }
}
