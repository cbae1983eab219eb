// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/log/log_message.h"
#include "sandbox/service.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr const char* help =
    "krv-sandbox-service: a development and test companion, never to be installed on a device.\n"
    "\n"
    "usage: krv-sandbox-service [--root DIR]\n"
    "\n"
    "Serves the package manager's D-Bus interface \"velta.KRV\" on the system bus\n"
    "(DBUS_SYSTEM_BUS_ADDRESS moves it) until SIGTERM or SIGINT. Says \"ready\" when it\n"
    "can be called, then writes a line for each call. Packages, their database, the\n"
    "registry and the trusted certificate authorities are those under the root: DIR, or\n"
    "else the environment variable KRV_ROOT_FS. docs/velta.KRV.xml describes the interface.\n";

int usageError() {
  std::cerr << "usage: krv-sandbox-service [--root DIR]\n";
  return 2;
}

} // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1 && arguments[0] == "--help") {
      std::cout << help;
      return EXIT_SUCCESS;
    }
    if (arguments.size() == 2 && arguments[0] == "--root")
      setenv("KRV_ROOT_FS", arguments[1].c_str(), 1);
    else if (!arguments.empty())
      return usageError();
    // Nobody is to get packages into a real system because a variable was forgotten.
    if (std::getenv("KRV_ROOT_FS") == nullptr)
      throw std::runtime_error("No root is given, neither with --root nor in KRV_ROOT_FS");
    Sandbox::serve();
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    LogMessage(LogLevel::Error) << error.what();
    return EXIT_FAILURE;
  }
}
