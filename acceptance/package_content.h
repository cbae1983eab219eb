// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/file_list.h"
#include "common/rpm/reader.h"

#include <filesystem>
#include <map>

namespace Acceptance {

/// Files of packages by their paths below the root, parents before what is in them. The root itself is not among them.
using PackagedFiles = std::multimap<std::filesystem::path, PackagedFile>;

/// The files of a package that is to be installed, after a look at whether they make sense together: each has one path,
/// absolute and without detours, and nothing lies below a file or a link. Throws Common::Error, BadPackageContent.
PackagedFiles checkedFiles(const Common::Rpm::Reader& package);

} // namespace Acceptance
