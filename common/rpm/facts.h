// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>

namespace Common::Rpm {

/// Whether RPM takes this machine for one that can run the package.
bool fitsArchitecture(const Reader& package);

/// Whether RPM would run something when it installs or erases the package: a script or a trigger of any kind.
bool hasScripts(const Reader& package);

/// How many bytes follow the signature header of the package file, as that header says: the main header and the
/// payload. 0 when it does not say.
std::uint64_t promisedSize(const Reader& package);

} // namespace Common::Rpm
