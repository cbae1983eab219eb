// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>

namespace Acceptance {

/// Header tags for what only an installation finds out: an installed package has them in its database entry, and a
/// package file must not have them. Nobody else uses the numbers; they follow that of the tag for CMSes.
namespace InstallationTag {
inline constexpr std::int32_t Source = 1263687236;
inline constexpr std::int32_t KeyId = 1263687237;
inline constexpr std::int32_t PreviousKeyIds = 1263687238;
inline constexpr std::int32_t Subgroup = 1263687239;
} // namespace InstallationTag

/// Whether the header has one of the tags above.
bool hasInstallationTags(const Common::Rpm::Reader& header);

/// Whether RPM takes this machine for one that can run the package.
bool fitsArchitecture(const Common::Rpm::Reader& package);

/// Whether RPM would run something when it installs or erases the package: a script or a trigger of any kind.
bool hasScripts(const Common::Rpm::Reader& package);

} // namespace Acceptance
