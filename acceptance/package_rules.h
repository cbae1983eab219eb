// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"
#include "common/signatures/developer_identity.h"

#include <string>

/// The rules for packages that may be installed. Each function throws Common::Error with the code of the broken rule.
namespace Acceptance {

/// Checks a package without regard to installed packages: BadPackageID, BadPackageVersion, BadPackageArchitecture, and
/// BadPackageContent for a header with the tags of an installed package.
void requireInstallable(const Common::Rpm::Reader& package);

/// The data of a package that the rules compare.
struct PackageIdentity {
  std::string name;
  std::string version; ///< "version-release", after "epoch:" if the package has an epoch
  Common::DeveloperIdentity developer;
};

/// Checks whether `package` may replace `installed`. Compares the developers first: DeveloperMismatch, or
/// DeveloperKeySuperseded if the developer of `installed` has replaced the key of `package`. Then compares the
/// versions: SamePackageIsInstalled, DowngradeAttempt.
void requireSuccessor(const PackageIdentity& package, const PackageIdentity& installed);

} // namespace Acceptance
