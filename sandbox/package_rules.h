// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"
#include "common/signatures/developer_identity.h"
#include "sandbox/stored_package.h"

#include <string>

/// Which packages may be installed. Each of these throws Common::Error with the code for what is wrong.
namespace Sandbox {

/// What is wrong with a package whatever is installed: BadPackageID, BadPackageVersion, BadPackageArchitecture, and
/// BadPackageContent for a header that claims to have been installed already.
void requireInstallable(const Common::Rpm::Reader& package);

/// Whether `package`, signed by `developer`, may take the place of `installed`. First its developer is asked about:
/// DeveloperMismatch, or DeveloperKeySuperseded for a key that `installed` has left behind; then the version:
/// SamePackageIsInstalled, DowngradeAttempt.
void requireSuccessor(const StoredPackage& package, const StoredPackage& installed);

} // namespace Sandbox
