// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// Runs one operation of the package store as a program, so that a test can make its system calls fail or kill it:
//
//   store_tool open
//   store_tool install PACKAGE
//   store_tool remove NAME
//
// Exit status 1: the store or the operation has failed; what() is on standard error.

#include "sandbox/store/package_store.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  try {
    Sandbox::PackageStore store;
    if (arguments.at(0) == "install")
      store.install(arguments.at(1), "shop");
    else if (arguments.at(0) == "remove")
      store.remove(arguments.at(1));
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
