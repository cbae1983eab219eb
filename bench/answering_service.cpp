// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include <systemd/sd-bus.h>

namespace {

struct Answer {
  std::string version;
  std::string keyId;
};

int answerGetPackage(sd_bus_message* call, void* context, sd_bus_error* error) {
  const Answer& answer = *static_cast<const Answer*>(context);
  if (answer.version.empty())
    return sd_bus_error_set_const(error, "velta.KRV.Error.PackageNotExist", "The package does not exist");
  return sd_bus_reply_method_return(call, "a{ss}", 2, "general.version", answer.version.c_str(), "certificate.id",
                                    answer.keyId.c_str());
}

int answerInstall(sd_bus_message* call, void*, sd_bus_error*) {
  return sd_bus_reply_method_return(call, "");
}

int check(int result, const char* what) {
  if (result >= 0)
    return result;
  std::cerr << what << ": " << std::strerror(-result) << '\n';
  std::exit(1);
}

} // namespace

/// bench-service [VERSION KEYID]: a package-manager service that answers at once. Without arguments no package is
/// installed; with them every package is installed in that version with that developer key. Prints "ready" when it
/// accepts calls, and runs until it is killed.
int main(int argc, char** argv) {
  if (argc != 1 && argc != 3) {
    std::cerr << "usage: bench-service [VERSION KEYID]\n";
    return 2;
  }
  Answer answer = argc == 3 ? Answer{argv[1], argv[2]} : Answer{};
  const sd_bus_vtable methods[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("GetPackage", "s", "a{ss}", answerGetPackage, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD("Install", "sa{sv}", "", answerInstall, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_VTABLE_END,
  };
  sd_bus* connection = nullptr;
  check(sd_bus_open_system(&connection), "bus");
  const std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> owner(connection, &sd_bus_flush_close_unref);
  check(sd_bus_add_object_vtable(connection, nullptr, "/velta/KRV", "velta.KRV", methods, &answer), "object");
  check(sd_bus_request_name(connection, "velta.KRV", 0), "name");
  std::cout << "ready" << std::endl;
  for (;;) {
    if (check(sd_bus_process(connection, nullptr), "call") == 0)
      check(sd_bus_wait(connection, UINT64_MAX), "wait");
  }
}
