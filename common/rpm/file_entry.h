// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpm/rpmtypes.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace Common::Rpm {

/// The file type in a mode (inode(7)); unknown if the mode has none.
std::filesystem::file_type typeOf(rpm_mode_t mode);

/// The path of a packaged file below the root of a file system, without a '/' at its ends; "" for the root. It cannot
/// lead out of the root: ".." at the root stays there, as in the file system.
std::string nameBelowRoot(std::string_view name);

} // namespace Common::Rpm
