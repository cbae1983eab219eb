// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_content.h"
#include "tools/krv-image-check/model.h"

#include <filesystem>
#include <vector>

namespace ImageCheck {

/// A file as the model has it; `path` is below the root.
OwnedFile ownedFile(const std::filesystem::path& path, const Acceptance::PackagedFile& file);

/// Files of the model as the rules of the service take them.
Acceptance::PackagedFiles packagedFiles(const std::vector<OwnedFile>& files);

} // namespace ImageCheck
