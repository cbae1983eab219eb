// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/packages/rpm_sandbox.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Differential {

/// One package: its test name, the input of rpmbuild, and a change that is made afterwards.
struct Case {
  std::string name;
  Support::PackageInput input = {};
  std::function<void(const Support::RpmSandbox&, const std::filesystem::path&)> change = {};
};

/// Packages that rpmbuild and rpmsign make, with every option that changes a header.
std::vector<Case> builtPackages();

/// Packages that no tool makes: single values of the headers or bytes of the payload are changed.
std::vector<Case> handmadePackages();

} // namespace Differential
