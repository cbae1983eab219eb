// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-package-signature/options.h"

/// The commands. Each processes all packages, reports the failed ones on standard error, and returns true if none
/// failed. `sign` throws PackageSignatures::SigningError, before it changes any package, if a key cannot be used.
[[nodiscard]] bool sign(const Options& options);
[[nodiscard]] bool show(const Options& options);
[[nodiscard]] bool verify(const Options& options);
