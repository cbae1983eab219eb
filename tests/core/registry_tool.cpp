// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// Runs one operation on the registry, for tests that need a second process or failing system calls.
//
//   registry_tool read           prints the line of each record
//   registry_tool write LINE...  adds the records
//
// Exit status: 0 success, 1 the operation returned false, 2 it threw; the error is printed; 3 wrong usage.

#include "common/error/error.h"
#include "core/registry.h"

#include <algorithm>
#include <iostream>
#include <string_view>

namespace {

using Core::KRV::Registry;

bool read() {
  return Registry().foreachRecord(
      [](const Core::KRV::RegistryRecord& record) { std::cout << toString(record) << std::endl; });
}

bool write(char** first, char** last) {
  return std::all_of(first, last,
                     [](const char* line) { return Registry().writeRecord(Core::KRV::parseRecord(line).value()); });
}

} // namespace

int main(int count, char** arguments) {
  try {
    const std::string_view command = count > 1 ? arguments[1] : "";
    if (command == "read")
      return read() ? 0 : 1;
    if (command == "write")
      return write(arguments + 2, arguments + count) ? 0 : 1;
    return 3;
  } catch (const Common::Error& error) {
    std::cout << error.what() << std::endl;
    return 2;
  }
}
