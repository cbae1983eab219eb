// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The service's answer about an installed package. Both texts are unchecked.
struct InstalledPackage {
  std::string version;        ///< version and release, for example "1.2.3-1"
  std::string developerKeyId; ///< key id of the developer who signed the installed package
};
