// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Common::Filesystem {

/// The root of the file system to work on: the unchanged value of KRV_ROOT_FS, even if it is empty, or "/" if the
/// variable is not defined. Fixed locations are relative paths appended to it. Reads the variable on each call.
std::filesystem::path rootDirectory();

} // namespace Common::Filesystem
