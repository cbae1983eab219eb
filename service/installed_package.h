// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// What the service says about an installed package. Both texts are the service's own and are not checked.
struct InstalledPackage {
  std::string version;        ///< version and release, for example "1.2.3-1"
  std::string developerKeyId; ///< key id of the developer whose signature the package was installed with
};
