// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/environment.h"

#include <filesystem>

namespace Support {

/// A new OpenPGP key in the sandbox's home, to sign packages like a distribution.
class OpenPgpKey {
public:
  explicit OpenPgpKey(const RpmSandbox& sandbox);
  ~OpenPgpKey();
  OpenPgpKey(const OpenPgpKey&) = delete;
  OpenPgpKey& operator=(const OpenPgpKey&) = delete;

  /// Signs a package with rpmsign, in place.
  void sign(const std::filesystem::path& package) const;

  /// Imports the key into the sandbox's RPM database.
  void import() const;

private:
  const RpmSandbox& m_sandbox;
  ScopedEnvironment m_gnupgHome;
};

} // namespace Support
