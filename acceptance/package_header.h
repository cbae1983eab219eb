// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>

namespace Acceptance {

/// Header tags that an installation adds: the database entry of an installed package has them, and a package file must
/// not have them. The numbers are not used elsewhere; they follow the tag of the CMSes.
namespace InstallationTag {
inline constexpr std::int32_t Source = 1263687236;
inline constexpr std::int32_t KeyId = 1263687237;
inline constexpr std::int32_t PreviousKeyIds = 1263687238;
inline constexpr std::int32_t Subgroup = 1263687239;
} // namespace InstallationTag

/// Whether the header has one of the tags above.
bool hasInstallationTags(const Common::Rpm::Reader& header);

/// Whether RPM considers this machine able to run the package.
bool fitsArchitecture(const Common::Rpm::Reader& package);

/// Whether RPM would run a script or a trigger when it installs or erases the package.
bool hasScripts(const Common::Rpm::Reader& package);

} // namespace Acceptance
