// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/certificate.h"
#include "platform/rpmsign-external/src/file_with_cmses.h"

#include <rpmsign-external/verification.h>

namespace PackageSignatures {

/// Looks for the problems of a package, and fills only the problems and `authoritiesNotAfter` of the result. With
/// Extent::FirstProblem it stops at the first one, and the content, which may be large, is read last.
Verification examine(const FileWithCmses::Impl& file, const VerificationRequest& request, Extent extent);

} // namespace PackageSignatures
