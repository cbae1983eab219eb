// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_rules.h"
#include "common/rpm/reader.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Sandbox {

/// The service's data about an installed package.
struct StoredPackage : Acceptance::PackageIdentity {
  std::string source;
};

/// A copy of a package file's header with the tags of its installation at `time`, as librpm also adds tags. They are in
/// the database entry, so they are removed with it.
Common::Rpm::Reader withInstallationTags(const Common::Rpm::Reader& header, const StoredPackage& package,
                                         std::int64_t time);

/// The package of a database entry. Returns nothing if another program made the entry.
std::optional<StoredPackage> storedPackage(const Common::Rpm::Reader& entry);

} // namespace Sandbox
