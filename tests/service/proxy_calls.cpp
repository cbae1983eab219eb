// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "service/krv_proxy.h"

#include <chrono>
#include <iostream>
#include <string>

/// usage: test-proxy-calls get NAME
///        test-proxy-calls install PATH
///
/// Makes one call of the proxy in a process of its own. Prints the result after the log, and on standard error how many
/// whole seconds the call took by the clock of the process.
int main(int count, char** arguments) {
  auto proxy = KrvProxy::create();
  if (count != 3 || !proxy)
    return 1;
  const auto start = std::chrono::steady_clock::now();
  const bool result =
      arguments[1] == std::string("get") ? proxy->getPackage(arguments[2]).has_value() : proxy->install(arguments[2]);
  const auto time = std::chrono::floor<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
  std::cout << (result ? "success" : "failure") << std::endl;
  std::cerr << time.count() << std::endl;
}
