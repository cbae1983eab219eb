// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/file_list.h"
#include "common/rpm/reader.h"

#include <filesystem>
#include <map>
#include <vector>

namespace Sandbox {

/// Files of packages by their paths below the root, parents before what is in them. The root itself is not among them.
using PackagedFiles = std::multimap<std::filesystem::path, Common::Rpm::PackagedFile>;

/// The files of a package that is to be installed, after a look at whether they make sense together: each has one path,
/// absolute and without detours, and nothing lies below a file or a link. Throws Common::Error, BadPackageContent.
PackagedFiles contentOf(const Common::Rpm::Reader& package);

/// The files of database entries, whoever has made them.
PackagedFiles filesOf(const std::vector<Common::Rpm::Reader>& entries);

} // namespace Sandbox
