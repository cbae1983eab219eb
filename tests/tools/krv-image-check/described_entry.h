// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

#include <filesystem>
#include <string>

namespace ImageCheckTest {

/// The entry `name` of an image in which it is the package file `path`, as the image check reads it. The image trusts
/// the authority of the tests.
ImageCheck::Entry describedEntry(const std::string& name, const std::filesystem::path& path);

} // namespace ImageCheckTest
