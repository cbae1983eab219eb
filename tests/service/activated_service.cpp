// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/scripted_service.h"

#include <cstdlib>

/// A service that the bus starts. It reports one installed package and runs as long as the bus.
int main() {
  if (const char* const address = std::getenv("DBUS_STARTER_ADDRESS")) // only dbus-daemon sets it
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address, 1);
  using Support::ScriptedService;
  ScriptedService service(ScriptedService::Claim::OrThrow,
                          [](ScriptedService& own) { own.hasInstalled("started", "1.0-1", "key"); });
  service.waitForDeparture();
}
