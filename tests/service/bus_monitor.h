// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/bus/received_call.h"

#include <memory>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>

namespace Support {

/// Records all method calls on the system bus of the process, including calls to the bus itself.
class BusMonitor {
public:
  BusMonitor();

  /// Waits for a call of `member`, and returns the calls before it that were not returned yet, without those of
  /// systemd.
  std::vector<ReceivedCall> callsBefore(const std::string& member);

private:
  std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> m_bus;
};

} // namespace Support
