// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/reserved_paths.h"

#include "common/error/error.h"

#include <algorithm>
#include <array>
#include <string>

namespace Acceptance {

namespace fs = std::filesystem;

namespace {

/// A package that could write there could change the trusted authorities, the database of installed packages and the
/// packages of the image.
constexpr auto reservedFolders = std::to_array<const char*>({"etc/krv", "usr/share/krv", "var/lib/krv", "var/lib/rpm"});

bool isWithin(const fs::path& path, const fs::path& folder) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

Common::Error conflict(const std::string& reason, const fs::path& path) {
  return {Common::ErrorCode::FileConflict, reason + "/" + path.string()};
}

} // namespace

bool isReserved(const fs::path& path) {
  return std::ranges::any_of(reservedFolders, [&](const fs::path& folder) { return isWithin(path, folder); });
}

bool leadsToReserved(const fs::path& path) {
  return std::ranges::any_of(reservedFolders, [&](const fs::path& folder) { return isWithin(folder, path); });
}

void requireUnreserved(const fs::path& path, fs::file_type type) {
  if (isReserved(path))
    throw conflict("The package has a file in a folder that is not for packages: ", path);
  if (type != fs::file_type::directory && leadsToReserved(path))
    throw conflict("The package replaces the parent of a folder that is not for packages: ", path);
}

} // namespace Acceptance
