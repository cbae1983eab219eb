// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/service/bus_monitor.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

namespace Support {

namespace {

sd_bus* newBus() {
  sd_bus* bus = nullptr;
  sd_bus_new(&bus);
  return bus;
}

void check(int result) {
  if (result < 0)
    throw std::runtime_error("the bus cannot be overheard");
}

} // namespace

BusMonitor::BusMonitor() : m_bus(newBus(), &sd_bus_close_unref) {
  check(sd_bus_set_address(m_bus.get(), std::getenv("DBUS_SYSTEM_BUS_ADDRESS")));
  check(sd_bus_set_bus_client(m_bus.get(), 1));
  check(sd_bus_set_monitor(m_bus.get(), 1));
  check(sd_bus_start(m_bus.get()));
  check(sd_bus_call_method(m_bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus.Monitoring", "BecomeMonitor", nullptr, nullptr, "asu", 0, 0));
}

std::vector<ReceivedCall> BusMonitor::callsBefore(const std::string& member) {
  constexpr std::uint64_t waitingTime = std::chrono::microseconds(std::chrono::minutes(1)).count();
  std::vector<ReceivedCall> calls;
  while (true) {
    sd_bus_message* message = nullptr;
    const int processed = sd_bus_process(m_bus.get(), &message);
    check(processed);
    const std::unique_ptr<sd_bus_message, sd_bus_message* (*)(sd_bus_message*)> owner(message, &sd_bus_message_unref);
    // dbus-broker's launcher may call systemd at any time.
    if (message != nullptr && sd_bus_message_is_method_call(message, nullptr, nullptr) > 0 &&
        sd_bus_message_get_destination(message) != std::string("org.freedesktop.systemd1")) {
      if (sd_bus_message_get_member(message) == member)
        return calls;
      calls.push_back(receivedCall(message));
    }
    if (processed == 0 && sd_bus_wait(m_bus.get(), waitingTime) <= 0)
      throw std::runtime_error("nobody calls " + member);
  }
}

} // namespace Support
