// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/role.h>
#include <rpmsign-external/verification.h>

#include <array>
#include <ctime>
#include <optional>
#include <set>
#include <string>

namespace PackageSignatures {

struct Certificate::Impl {
  CertificatePtr own;
  CertificatesPtr others; ///< the other certificates of the CMS; may be null
  std::string message;    ///< the CMS in DER
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

/// Lower-case hexadecimal digits.
std::string hexOf(const Digest& digest);

/// SHA-256 of the certificate in DER; nothing if OpenSSL fails.
std::optional<Digest> digestOf(X509* certificate);

/// Whether the validity dates of the chain's certificates are checked.
enum class Dates {
  Checked,
  Ignored,
};

/// How many problems are looked for.
enum class Extent {
  FirstProblem,
  EveryProblem,
};

/// The trusted authorities and the time for the verification of a certificate.
struct Trust {
  const char* caPath; ///< may be null, which trusts nobody
  std::optional<std::time_t> at = {};
  Dates dates = Dates::Checked;
  Extent extent = Extent::FirstProblem;
};

struct ChainVerdict {
  std::set<Problem> problems;
  std::optional<std::time_t> authoritiesNotAfter; ///< the earliest; nothing if no authority was found
};

/// Whether the certificate may sign and chains to an authority in the directory. The other certificates of the CMS are
/// used only as intermediates. Every certificate of the chain must have 112 bits of security and not be revoked by a
/// list in the directory; an authority with an extended key usage must have the role in it. An authority without a list
/// has revoked nothing. If a list is not valid or cannot be read, all certificates of its authority are refused.
/// `extent` never changes whether there is a problem.
[[nodiscard]] ChainVerdict checkChain(const Certificate::Impl& certificate, const Trust& trust);

/// The time in seconds since the epoch; nothing if it is out of form.
std::optional<std::time_t> toTime(const ASN1_TIME* time);

} // namespace PackageSignatures
