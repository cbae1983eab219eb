// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/packages/rpm_sandbox.h"

#include <rpm/rpmlog.h>

namespace Fuzz {

/// Prepares librpm for a process that reads many packages. The first call makes an empty RPM database for the process
/// and silences librpm; every call drops the messages that librpm keeps. Call it at the start of each run.
inline void prepareRpm() {
  static const Support::RpmSandbox sandbox;
  static const rpmlogCallback previous = rpmlogSetCallback([](rpmlogRec, rpmlogCallbackData) { return 0; }, nullptr);
  static_cast<void>(previous);
  rpmlogClose();
}

} // namespace Fuzz
