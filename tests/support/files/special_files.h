// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Support {

/// Creates a FIFO. Throws on failure.
void makeFifo(const std::filesystem::path& path);

/// Creates a socket without a listener. Throws on failure.
void makeSocket(const std::filesystem::path& path);

} // namespace Support
