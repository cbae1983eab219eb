// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/scripted_service.h"

#include <cstdlib>

/// A service that the bus starts and that ends, without an answer, at the first call.
int main() {
  if (const char* const address = std::getenv("DBUS_STARTER_ADDRESS")) // only dbus-daemon sets it
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address, 1);
  Support::ScriptedService service;
  service.onGetPackage().die();
  service.onInstall().die();
  service.waitForDeparture();
}
