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

/// Calls `action` with each path. An exception is reported with the path, and the next package is treated.
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

/// Opens a package whose signatures can be read. Throws PackageSignatures::SigningError with the reason otherwise.
inline std::unique_ptr<PackageSignatures::FileWithCmses> openPackage(const std::string& path) {
  auto file = PackageSignatures::FileWithCmses::fromPath(path);
  if (!file) {
    PackageSignatures::packageLayout(path); // knows why
    throw PackageSignatures::SigningError("its signatures cannot be read");
  }
  return file;
}

/// "developer", "source", or an empty text for a signer without a role.
inline std::string roleName(const PackageSignatures::Cms& cms) {
  if (PackageSignatures::developerCmsFromVector({cms}))
    return "developer";
  return PackageSignatures::clientCmsFromVector({cms}) ? "source" : "";
}
