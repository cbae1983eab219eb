// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"

#include <filesystem>

namespace Support {

/// The environment of a child process that loads `library` before all others.
Environment preloading(const std::filesystem::path& library);

} // namespace Support
