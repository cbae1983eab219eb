// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/scripted_service.h"

#include <cstdlib>

/// A service that the bus starts. It has one package installed and lives as long as the bus does.
int main() {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", std::getenv("DBUS_STARTER_ADDRESS"), 1);
  Support::ScriptedService service;
  service.hasInstalled("started", "1.0-1", "key");
  service.waitForDeparture();
}
