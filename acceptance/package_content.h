// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/file_list.h"
#include "common/rpm/reader.h"

#include <filesystem>
#include <map>

namespace Acceptance {

/// Files of packages by their paths below the root, parents before their content. Does not contain the root itself.
using PackagedFiles = std::multimap<std::filesystem::path, PackagedFile>;

/// The files of a package to install. Throws Common::Error, BadPackageContent, unless each has a path of its own, which
/// is absolute and normalised, and no file lies below a file or a symlink.
PackagedFiles checkedFiles(const Common::Rpm::Reader& package);

} // namespace Acceptance
