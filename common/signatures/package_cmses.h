// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/signatures/developer_identity.h"

#include <rpmsign-external/package_signatures.h>

#include <string>
#include <vector>

namespace Common {

/// All CMS signatures of the package at `path`, symlinks followed. Throws Common::Error: FileNotFound if they cannot be
/// read.
///
/// With `verify` they are also checked against the system's certificate authorities, which reads the whole file. The
/// checks in order: the developer's certificate (MissingDeveloperSignature, IllegalDeveloperCertificate), the source's
/// certificate if there is a source signature (IllegalSourceCertificate), every signature
/// (SignatureVerificationFailed). Without `verify` the result must not be trusted.
std::vector<PackageSignatures::Cms> readPackageCmses(const std::string& path, bool verify);

/// The developer's certificate. Throws Common::Error, MissingDeveloperSignature, if there is none.
PackageSignatures::Certificate developerCertificate(const std::vector<PackageSignatures::Cms>& cmses);

/// The developer of the package. Throws Common::Error, MissingDeveloperSignature, if no developer signed it.
DeveloperIdentity developerIdentity(const std::vector<PackageSignatures::Cms>& cmses);

} // namespace Common
