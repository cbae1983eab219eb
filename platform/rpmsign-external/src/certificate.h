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
  CertificatesPtr others; ///< the other certificates of the CMS; may be null
};

/// The arc of this format's object identifiers.
#define KRV_ARC "2.25.157019916226857759528849042802738373896"
inline constexpr char developerUsage[] = KRV_ARC ".1";
inline constexpr char sourceUsage[] = KRV_ARC ".2";
inline constexpr char rotationAttribute[] = KRV_ARC ".3";
#undef KRV_ARC

/// The object of an identifier in dotted form. It is not registered with OpenSSL, which would change process-wide
/// state.
ObjectPtr objectFromText(const char* identifier);

/// The role in the certificate's extended key usage; nothing if it has neither or both.
std::optional<Role> roleOf(X509* certificate);

std::string keyIdOf(X509* certificate);

using Digest = std::array<unsigned char, 32>;

/// SHA-256 of the certificate in DER; nothing if OpenSSL fails.
std::optional<Digest> digestOf(X509* certificate);

/// Whether the validity dates of the chain's certificates are checked.
enum class Dates {
  Checked,
  Ignored,
};

/// True if the certificate may sign and chains to an authority in `caPath`. The other certificates of the CMS are used
/// only as intermediates. Every certificate of the chain must have 112 bits of security and not be revoked by a list in
/// `caPath`; an authority with an extended key usage must have the role in it. An authority without a list has revoked
/// nothing. If a list is not valid today or cannot be read, all certificates of its authority are refused.
[[nodiscard]] bool chainsToAuthority(const Certificate::Impl& certificate, const char* caPath, Dates dates);

} // namespace PackageSignatures
