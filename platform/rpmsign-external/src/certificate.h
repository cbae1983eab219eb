// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/role.h>

#include <array>
#include <optional>
#include <string>

namespace PackageSignatures {

struct Certificate::Impl {
  CertificatePtr own;
  CertificatesPtr others; ///< what came with it; may be null
};

/// The arc under which the object identifiers of this format are assigned.
#define KRV_ARC "2.25.157019916226857759528849042802738373896"
inline constexpr char developerUsage[] = KRV_ARC ".1";
inline constexpr char sourceUsage[] = KRV_ARC ".2";
inline constexpr char rotationAttribute[] = KRV_ARC ".3";
#undef KRV_ARC

/// The object for an identifier in dotted form. It needs no registration, which would be process-wide state.
ObjectPtr objectFromText(const char* identifier);

/// The role given by the certificate's extended key usage; none when it has neither or both.
std::optional<Role> roleOf(X509* certificate);

std::string keyIdOf(X509* certificate);

using Digest = std::array<unsigned char, 32>;

/// SHA-256 of the certificate in DER; nothing when OpenSSL fails.
std::optional<Digest> digestOf(X509* certificate);

/// The dates of the certificates on the way to the authority.
enum class Dates {
  Checked,
  Ignored,
};

/// True when the certificate may sign and chains to an authority in `caPath`. What came with it is only used to fill
/// the middle. Every certificate of the chain has to be of 112 bits of security and not be revoked by a list in
/// `caPath`; authorities whose extended key usage is stated need the role's. An authority without a list has revoked
/// nothing; a list that is not valid today or cannot be read refuses all that the authority certifies.
[[nodiscard]] bool chainsToAuthority(const Certificate::Impl& certificate, const char* caPath, Dates dates);

} // namespace PackageSignatures
