// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpm/rpmtypes.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace Common::Rpm {

/// The type that a mode says (inode(7)); unknown for a mode with none of these types.
std::filesystem::file_type typeOf(rpm_mode_t mode);

/// Where a packaged file's name leads below the root of a file system, without a '/' at its ends; "" for the root. It
/// cannot climb out: as in the file system, the root is its own parent.
std::string nameBelowRoot(std::string_view name);

} // namespace Common::Rpm
