// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <rpmsign-external/role.h>

#include <exception>
#include <optional>
#include <string>
#include <vector>

/// Prints a message on standard error.
void complain(const std::string& message);

/// Prints a message about a package or a directory on standard error.
void complainAbout(const std::string& path, const std::string& message);

/// Opens a package, symlinks followed. Throws PackageSignatures::SigningError with the reason if that fails or the path
/// is not a regular file.
Common::Posix::FileDescriptor openPackage(const std::string& path);

/// "developer" or "source"; empty for a signer without a role.
std::string roleName(std::optional<PackageSignatures::Role> role);

/// Calls `action` with each path; it returns the reasons why the package failed. They and the reason of an exception
/// are printed on standard error. Returns true if no package failed.
template <typename Action>
[[nodiscard]] bool forEachPackage(const std::vector<std::string>& packages, Action action) {
  bool allDone = true;
  for (const std::string& path : packages) {
    std::vector<std::string> reasons;
    try {
      reasons = action(path);
    } catch (const std::exception& error) {
      reasons.push_back(error.what());
    }
    for (const std::string& reason : reasons)
      complainAbout(path, reason);
    allDone = allDone && reasons.empty();
  }
  return allDone;
}
