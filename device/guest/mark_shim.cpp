// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// A library for LD_PRELOAD in krv-pre-installer: marks the moment at which an Install is answered.
#include "device/guest/mark.h"

#include <cstdint>
#include <cstring>

#include <dlfcn.h>
#include <systemd/sd-bus.h>

extern "C" int sd_bus_call(sd_bus* bus, sd_bus_message* call, std::uint64_t limit, sd_bus_error* error,
                           sd_bus_message** reply) {
  static const auto next = reinterpret_cast<decltype(&sd_bus_call)>(dlsym(RTLD_NEXT, "sd_bus_call"));
  const int result = next(bus, call, limit, error, reply);
  const char* const member = sd_bus_message_get_member(call);
  if (result >= 0 && member != nullptr && std::strcmp(member, "Install") == 0)
    Device::mark("install");
  return result;
}
