// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/packages/rpm_sandbox.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Differential {

/// One package: its name among the tests, what rpmbuild makes it of, and what is done to it afterwards.
struct Case {
  std::string name;
  Support::PackageInput input = {};
  std::function<void(const Support::RpmSandbox&, const std::filesystem::path&)> change = {};
};

/// Packages as rpmbuild and rpmsign make them, with every option that changes a header.
std::vector<Case> builtPackages();

/// Packages that no tool makes: single values of the headers, or bytes of the payload, are changed.
std::vector<Case> handmadePackages();

} // namespace Differential
