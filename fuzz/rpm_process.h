// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/rpm_sandbox.h"

#include <rpm/rpmlog.h>

namespace Fuzz {

/// A process that reads package after package: its RPM database is an empty one of its own, and librpm, which keeps
/// every message until it is told otherwise, says nothing. To be asked for at the start of each run.
inline void prepareRpm() {
  static const Support::RpmSandbox sandbox;
  static const rpmlogCallback previous = rpmlogSetCallback([](rpmlogRec, rpmlogCallbackData) { return 0; }, nullptr);
  static_cast<void>(previous);
  rpmlogClose();
}

} // namespace Fuzz
