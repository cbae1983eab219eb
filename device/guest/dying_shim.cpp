// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// A library for LD_PRELOAD in krv-sandbox-service: a service that starts, takes its name, and dies at every call, when
// it begins to read the arguments.
#include <csignal>

#include <dlfcn.h>
#include <systemd/sd-bus.h>

extern "C" int sd_bus_message_read_basic(sd_bus_message* message, char type, void* value) {
  if (sd_bus_message_is_method_call(message, "velta.KRV", nullptr) > 0)
    raise(SIGKILL);
  static const auto next =
      reinterpret_cast<decltype(&sd_bus_message_read_basic)>(dlsym(RTLD_NEXT, "sd_bus_message_read_basic"));
  return next(message, type, value);
}
