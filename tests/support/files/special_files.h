// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Support {

/// Makes a FIFO. Throws when it cannot.
void makeFifo(const std::filesystem::path& path);

/// Makes a socket to which nobody listens. Throws when it cannot.
void makeSocket(const std::filesystem::path& path);

} // namespace Support
