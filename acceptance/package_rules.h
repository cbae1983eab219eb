// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"
#include "common/signatures/developer_identity.h"

#include <string>

/// The rules by which the reference service accepts a package. They need the package, and the identity of the installed
/// one, and nothing else. Each throws Common::Error with the code that the service answers with, for one refusal.
namespace Acceptance {

/// BadPackageID for a name that the registry, the bus or RPM cannot handle.
void requireUsableName(const std::string& name);

/// BadPackageVersion for a version or release that the bus or RPM cannot handle.
void requireVersion(const Common::Rpm::Reader& package);

/// BadPackageArchitecture if RPM cannot install the package on this machine.
void requireArchitecture(const Common::Rpm::Reader& package);

/// BadPackageContent for a header with tags that only an installation adds.
void requireNoInstallationTags(const Common::Rpm::Reader& package);

/// The four rules above, in their order. They hold whatever is installed.
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
