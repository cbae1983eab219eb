// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/temp_directory.h"

#include <rpmsign-external/signing.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Support {

/// The keys and certificates that sandbox/make-pki makes; the head of that script lists their names. They are made at
/// the first use and differ from process to process.
class Pki {
public:
  static const Pki& instance();

  std::filesystem::path key(const std::string& name) const { return m_directory / (name + ".key.pem"); }
  std::filesystem::path certificate(const std::string& name) const { return m_directory / (name + ".pem"); }
  std::filesystem::path trustedCa() const { return m_directory / "trusted-ca"; }

  std::string keyId(const std::string& name) const;

  /// The keys of a signature by `name`, with the earlier keys `previous`, oldest first.
  PackageSignatures::Signer signer(const std::string& name, const std::vector<std::string>& previous = {}) const;

private:
  Pki();
  TempDirectory m_directory;
};

/// Signs a package in place.
void sign(const std::filesystem::path& package, const std::string& name, const std::vector<std::string>& previous = {});

/// Adds the sandbox's authority to the trusted ones of the system under `root`.
void trustAuthorityUnder(const std::filesystem::path& root);

} // namespace Support
