// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/signatures/developer_identity.h"

#include <rpmsign-external/package_signatures.h>

#include <string>
#include <vector>

namespace Common {

/// All CMS signatures of the package at `path`, links followed. Raises FileNotFound when they cannot be read.
///
/// With `verify` they are also checked against the system's certificate authorities, which reads the whole file:
/// the developer's certificate (MissingDeveloperSignature, IllegalDeveloperCertificate), the source's, if there is
/// one (IllegalSourceCertificate), then every signature (SignatureVerificationFailed). Without it nobody is to be
/// trusted because of what is returned.
std::vector<PackageSignatures::Cms> readPackageCmses(const std::string& path, bool verify);

/// The developer's certificate. Raises MissingDeveloperSignature when there is none.
PackageSignatures::Certificate developerCertificate(const std::vector<PackageSignatures::Cms>& cmses);

/// The developer behind a package. Raises MissingDeveloperSignature when no developer signed it.
DeveloperIdentity developerIdentity(const std::vector<PackageSignatures::Cms>& cmses);

} // namespace Common
