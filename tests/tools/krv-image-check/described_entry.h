// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <filesystem>
#include <string>

namespace ImageCheckTest {

/// The entry `name` with what the package at `path` says. Its signatures are verified with the authorities of the
/// current root.
ImageCheck::Entry describedEntry(const std::string& name, const std::filesystem::path& path);

} // namespace ImageCheckTest
