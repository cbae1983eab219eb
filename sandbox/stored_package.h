// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Sandbox {

/// What the service knows of an installed package.
struct StoredPackage {
  std::string name;
  std::string version; ///< "version-release", with "epoch:" before it only if the package has one
  std::string source;
  std::string developerKeyId;
  std::vector<std::string> previousKeyIds;
  std::string developerSubgroup;
};

/// Whether the header claims facts that only an installation may add.
bool hasInstallationFacts(const Common::Rpm::Reader& header);

/// A copy of the header of a package file with what was found out when it was installed, at `time`. librpm does the
/// same with the facts that it adds. Kept in the database entry, they come and go with it.
Common::Rpm::Reader withInstallationFacts(const Common::Rpm::Reader& header, const StoredPackage& package,
                                          std::int64_t time);

/// What a database entry says. Nothing for an entry that somebody else has made.
std::optional<StoredPackage> storedPackage(const Common::Rpm::Reader& entry);

} // namespace Sandbox
