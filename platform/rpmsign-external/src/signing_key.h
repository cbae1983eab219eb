// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <rpmsign-external/signing.h>

namespace PackageSignatures {

struct SigningKey::Impl {
  ProviderPtr provider; ///< of the key; null for OpenSSL's own ones
  KeyPtr key;
  CertificatePtr certificate;
};

/// The certificates of a PEM file; an empty list for an empty path. Throws SigningError if the file cannot be read.
CertificatesPtr readCertificates(const std::string& path);

} // namespace PackageSignatures
