// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/bus/received_call.h"

#include <memory>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>

namespace Support {

/// Overhears all method calls on the system bus of the process, those to the bus itself included.
class BusMonitor {
public:
  BusMonitor();

  /// The calls since the last time, up to and without the first one of `member`, which is waited for.
  std::vector<ReceivedCall> callsBefore(const std::string& member);

private:
  std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> m_bus;
};

} // namespace Support
