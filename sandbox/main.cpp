// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/command_line/command_line.h"
#include "driver/log/log_message.h"
#include "sandbox/service.h"

#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

int main(int count, char** arguments) {
  try {
    CLI::App app("A package-manager service for development and tests, never to be installed on a device.\n"
                 "Serves the D-Bus interface \"velta.KRV\" on the system bus (DBUS_SYSTEM_BUS_ADDRESS moves it) until "
                 "SIGTERM or SIGINT. Writes \"ready\" when it can be called, then a line for each call. "
                 "docs/velta.KRV.xml describes the interface.",
                 "krv-sandbox-service");
    std::string root;
    app.add_option("--root", root,
                   "The root that has packages, their database, the registry and the trusted certificate authorities; "
                   "default: $KRV_ROOT_FS")
        ->type_name("DIR");
    if (const auto status = Common::parseCommandLine(app, count, arguments))
      return *status;
    if (app.count("--root") > 0)
      setenv("KRV_ROOT_FS", root.c_str(), 1);
    // If the variable is forgotten, packages must not be installed into the real system.
    if (std::getenv("KRV_ROOT_FS") == nullptr)
      throw std::runtime_error("No root is given, neither with --root nor in KRV_ROOT_FS");
    Sandbox::serve();
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    LogMessage(LogLevel::Error) << error.what();
    return EXIT_FAILURE;
  }
}
