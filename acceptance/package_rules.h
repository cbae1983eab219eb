// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"
#include "common/signatures/developer_identity.h"

#include <string>

/// Which packages may be installed. Each of these throws Common::Error with the code for what is wrong.
namespace Acceptance {

/// What is wrong with a package whatever is installed: BadPackageID, BadPackageVersion, BadPackageArchitecture, and
/// BadPackageContent for a header that claims to have been installed already.
void requireInstallable(const Common::Rpm::Reader& package);

/// A package as the rules compare it with another one.
struct PackageIdentity {
  std::string name;
  std::string version; ///< "version-release", with "epoch:" before it only if the package has one
  Common::DeveloperIdentity developer;
};

/// Whether `package` may replace `installed`. First the developers are compared: DeveloperMismatch, or
/// DeveloperKeySuperseded if the developer of `installed` has replaced the key of `package`; then the versions:
/// SamePackageIsInstalled, DowngradeAttempt.
void requireSuccessor(const PackageIdentity& package, const PackageIdentity& installed);

} // namespace Acceptance
