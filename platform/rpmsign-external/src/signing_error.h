// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpmsign-external/signing.h>

#include <string>

namespace PackageSignatures {

/// Throws SigningError: `what`, and the system's description of `error`.
[[noreturn]] void failWithErrno(const std::string& what, int error);

} // namespace PackageSignatures
