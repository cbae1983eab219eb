// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

/// The folders of the root that are not for packages. All paths are below the root.
namespace Acceptance {

/// Whether `path` is a reserved folder or lies in one.
[[nodiscard]] bool isReserved(const std::filesystem::path& path);

/// Whether `path` is a reserved folder or above one: whoever may rename entries there can replace the folder.
[[nodiscard]] bool leadsToReserved(const std::filesystem::path& path);

/// Whether a package may have an entry of this type there. Throws Common::Error: FileConflict.
void requireUnreserved(const std::filesystem::path& path, std::filesystem::file_type type);

} // namespace Acceptance
