// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-package-signature/options.h"

/// The commands. Each treats every package, reports those that fail on standard error, and returns true when none did.
/// `sign` throws PackageSignatures::SigningError when a key cannot be used, before any package is touched.
[[nodiscard]] bool sign(const Options& options);
[[nodiscard]] bool show(const Options& options);
[[nodiscard]] bool verify(const Options& options);
