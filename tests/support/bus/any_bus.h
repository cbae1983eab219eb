// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/bus/private_bus.h"

#include <gtest/gtest.h>

#include <string>

namespace Support {

/// Tests that run on each bus: TEST_P(Name, ...), and once per fixture
///
///   INSTANTIATE_TEST_SUITE_P(Each, Name, everyBus, busName);
class AnyBus : public testing::TestWithParam<BusProgram> {
protected:
  void SetUp() override {
    if (!isInstalled(GetParam()))
      GTEST_SKIP() << "dbus-broker is not installed";
  }

  BusTexts texts() const { return textsOf(GetParam()); }
};

inline const auto everyBus = testing::Values(BusProgram::DbusDaemon, BusProgram::DbusBroker);

inline std::string busName(const testing::TestParamInfo<BusProgram>& info) {
  return info.param == BusProgram::DbusDaemon ? "DbusDaemon" : "DbusBroker";
}

} // namespace Support
