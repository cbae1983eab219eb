// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/signing.h>

#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

/// Calls `action` with each path. If it throws, prints the path and the reason on standard error and continues with the
/// next path. Returns true if no call threw.
template <typename Action>
[[nodiscard]] bool forEachPackage(const std::vector<std::string>& packages, Action action) {
  bool allDone = true;
  for (const std::string& path : packages) {
    try {
      action(path);
    } catch (const std::exception& error) {
      std::cerr << "krv-package-signature: " << path << ": " << error.what() << '\n';
      allDone = false;
    }
  }
  return allDone;
}

/// Opens a package. Throws PackageSignatures::SigningError with the reason if its signatures cannot be read.
inline std::unique_ptr<PackageSignatures::FileWithCmses> openPackage(const std::string& path) {
  auto file = PackageSignatures::FileWithCmses::fromPath(path);
  if (!file) {
    PackageSignatures::packageLayout(path); // throws the reason
    throw PackageSignatures::SigningError("its signatures cannot be read");
  }
  return file;
}

/// "developer" or "source"; empty for a signer without a role.
inline std::string roleName(const PackageSignatures::Cms& cms) {
  if (PackageSignatures::developerCmsFromVector({cms}))
    return "developer";
  return PackageSignatures::clientCmsFromVector({cms}) ? "source" : "";
}
