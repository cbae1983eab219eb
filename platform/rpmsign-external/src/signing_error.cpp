// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/signing_error.h"

#include <system_error>

namespace PackageSignatures {

void failWithErrno(const std::string& what, int error) {
  throw SigningError(what + ": " + std::generic_category().message(error));
}

} // namespace PackageSignatures
