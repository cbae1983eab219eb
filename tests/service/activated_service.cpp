// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/scripted_service.h"

#include <cstdlib>

/// A service that the bus starts. It has one package installed and lives as long as the bus does.
int main() {
  if (const char* const address = std::getenv("DBUS_STARTER_ADDRESS")) // of dbus-daemon only
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address, 1);
  Support::ScriptedService service;
  service.hasInstalled("started", "1.0-1", "key");
  service.waitForDeparture();
}
