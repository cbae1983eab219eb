// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/role.h>

#include <ctime>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Verifies packages like FileWithCmses::verifyCmses(), with which it shares its code, and gives every reason for a
/// failure. The platform's library does not need it. No function throws because of a package or of a directory.
namespace PackageSignatures {

/// Why a package does not verify.
enum class Problem {
  Unsigned,               ///< of the file: it has no CMS
  ContentIsNoHeader,      ///< of the file: the content does not begin with an RPM header
  ContentUnreadable,      ///< of the file: the system failed to read the content
  RoleMissing,            ///< neither a developer's nor a source's certificate, or both
  RoleTwice,              ///< another CMS of the file has the same role
  Untrusted,              ///< no valid chain of certificates to a trusted authority
  Expired,                ///< the signer's certificate, or one of an authority, is not valid any more
  NotYetValid,            ///< the signer's certificate, or one of an authority, is not valid yet
  Revoked,                ///< a certificate of the chain is on its authority's revocation list
  RevocationListUnusable, ///< a list of an authority in the chain is expired, of the future, forged or unreadable
  Weak,                   ///< a key, or the digest of a certificate, has less than 112 bits of security
  UsageForbidden,         ///< the key may not sign, or an authority may not give the role
  SignatureBroken,        ///< the signature is not valid for the content, or not for the certificate
  RotationBroken,         ///< the rotation chain is unreadable, or an earlier key has a problem
};

/// A key that vouches for its successor.
struct EarlierKey {
  std::string keyId;
  /// RoleMissing (not a developer's), Untrusted, Revoked, RevocationListUnusable, Weak, UsageForbidden, or
  /// SignatureBroken (it does not vouch for the next key). Its dates are not checked.
  std::set<Problem> problems;
};

/// A signer as the certificate in its CMS describes it; nothing of it is verified.
struct SignerDescription {
  std::optional<Role> role;
  std::string keyId;
  Subgroup subgroup;
  std::string subject; ///< in the form of RFC 2253: printable ASCII, other bytes escaped
  std::string issuer;  ///< in the same form
  /// The validity of the certificate; nothing if a date cannot be read.
  std::optional<std::time_t> notBefore;
  std::optional<std::time_t> notAfter;
};

[[nodiscard]] SignerDescription describeSigner(const Cms& cms);

/// One CMS and its problems.
struct CmsVerification : SignerDescription {
  /// The earliest end of validity among the certificates above the signer's that were found; nothing without any.
  std::optional<std::time_t> authoritiesNotAfter;
  std::vector<EarlierKey> earlierKeys; ///< oldest first; empty if the rotation chain is missing or unreadable
  std::set<Problem> problems;
};

struct Verification {
  std::vector<CmsVerification> cmses; ///< in the order of FileWithCmses::cmses()
  std::set<Problem> problems;         ///< those of the file
  /// SHA-256 of the whole file in 64 lower-case hexadecimal digits, if it was asked for and the file could be read.
  std::optional<std::string> fileDigest;

  /// True if nothing has a problem. For today this is the answer of verifyCmses().
  bool isGood() const;
};

enum class FileDigest {
  Skipped,
  Computed,
};

struct VerificationRequest {
  const char* caPath;
  std::optional<std::time_t> at = {}; ///< the time at which certificates and lists must be valid; nothing for now
  FileDigest fileDigest = FileDigest::Skipped;
};

/// Finds every problem. Reads the whole file once, whatever the problems, and empties OpenSSL's error queue.
[[nodiscard]] Verification verifyPackage(const FileWithCmses& file, const VerificationRequest& request);

/// FileWithCmses::fromPath() for a file that is already open for reading. The descriptor is duplicated and stays the
/// caller's; its offset is neither used nor changed.
[[nodiscard]] std::unique_ptr<FileWithCmses> packageFromDescriptor(int descriptor);

/// The state of a directory of authorities.
enum class CaFolder {
  Usable,
  Missing,
  NotADirectory,
  Unreadable,  ///< the directory, or every certificate in it
  NotRehashed, ///< holds no certificate under a name that openssl-rehash(1) gives
};

/// Whether authorities can be found in `caPath`, symlinks followed. The certificates are not parsed. Never blocks for
/// the other end of a FIFO.
[[nodiscard]] CaFolder checkCaFolder(const char* caPath);

} // namespace PackageSignatures
