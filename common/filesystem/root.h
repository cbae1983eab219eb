// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Common::Filesystem {

/// Where the file system to work on begins: the value of KRV_ROOT_FS exactly as it is, even when empty, or "/" when
/// the variable is not defined. Fixed locations are relative paths appended to it. Read afresh on each call.
std::filesystem::path rootDirectory();

} // namespace Common::Filesystem
