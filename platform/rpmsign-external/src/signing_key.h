// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <rpmsign-external/signing.h>

namespace PackageSignatures {

struct SigningKey::Impl {
  KeyPtr key;
  CertificatePtr certificate;
};

/// The certificates of a PEM file; an empty list for an empty path. Throws SigningError if the file cannot be read.
CertificatesPtr readCertificates(const std::string& path);

/// Throws SigningError with the text "`what`: ", followed by the system's description of `error`.
[[noreturn]] void failWithErrno(const std::string& what, int error);

} // namespace PackageSignatures
