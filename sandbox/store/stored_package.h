// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_rules.h"
#include "common/rpm/reader.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Sandbox {

/// What the service knows of an installed package.
struct StoredPackage : Acceptance::PackageIdentity {
  std::string source;
};

/// A copy of the header of a package file with what was found out when it was installed, at `time`. librpm does the
/// same with the facts that it adds. Kept in the database entry, they come and go with it.
Common::Rpm::Reader withInstallationTags(const Common::Rpm::Reader& header, const StoredPackage& package,
                                         std::int64_t time);

/// What a database entry says. Nothing for an entry that somebody else has made.
std::optional<StoredPackage> storedPackage(const Common::Rpm::Reader& entry);

} // namespace Sandbox
