// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

namespace Common::Rpm {

/// Whether RPM takes this machine for one that can run the package.
bool fitsArchitecture(const Reader& package);

/// Whether RPM would run something when it installs or erases the package: a script or a trigger of any kind.
bool hasScripts(const Reader& package);

} // namespace Common::Rpm
