// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

int endAtCall(sd_bus_message* message, void*, sd_bus_error*) {
  if (sd_bus_message_is_method_call(message, nullptr, nullptr) > 0)
    _exit(0);
  return 0;
}

} // namespace

/// A service that the bus starts and that ends, without an answer, at the first call. It has no thread and no name
/// before it is ready to end, so that no call finds it alive.
int main() {
  if (const char* const address = std::getenv("DBUS_STARTER_ADDRESS")) // only dbus-daemon sets it
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address, 1);
  sd_bus* opened = nullptr;
  if (sd_bus_open_system(&opened) < 0)
    return 1;
  const std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> bus(opened, &sd_bus_flush_close_unref);
  if (sd_bus_add_filter(bus.get(), nullptr, endAtCall, nullptr) < 0 ||
      sd_bus_request_name(bus.get(), "velta.KRV", 0) < 0)
    return 1;
  constexpr std::uint64_t forever = UINT64_MAX; // sd_bus_wait(3)
  int processed = 0;
  while (processed >= 0)
    processed = sd_bus_process(bus.get(), nullptr) > 0 ? 1 : sd_bus_wait(bus.get(), forever);
  return 0; // the bus has ended
}
