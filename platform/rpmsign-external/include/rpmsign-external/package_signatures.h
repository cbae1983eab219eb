// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Reads and verifies the CMS signatures of an RPM package.
///
/// A malformed package makes no function of this header throw or crash, and no function allocates more than the size of
/// the file. Every function empties OpenSSL's error queue, including entries that were there before. The values share
/// immutable state: copies are cheap and outlive the file that they came from.
namespace PackageSignatures {

/// The kind of a developer, from the certificate's subject.
enum class Subgroup {
  Regular,
  System,
  Extended,
  Unknown,
};

/// "regular", "system", "extended" or "unknown".
std::string subgroupToString(Subgroup subgroup);

/// The certificate of a signer, with the other certificates of its CMS.
class Certificate {
public:
  struct Impl;
  explicit Certificate(std::shared_ptr<const Impl> impl);

  /// True if the certificate is valid today, may be used for signatures and chains to a certificate authority in
  /// `caPath`, a directory made with openssl-rehash(1). The other certificates of the CMS may be intermediates of the
  /// chain and are never trusted. No certificate of the chain may be weak or revoked by a list in the directory, and no
  /// authority in it may be restricted to other roles. docs/signature-format.md has the full rules.
  [[nodiscard]] bool verify(const char* caPath) const;

  /// SHA-256 of the DER form of the certificate's SubjectPublicKeyInfo, as 64 lower-case hexadecimal digits.
  std::string keyId() const;

  /// The subject's first organizational unit: "system", "extended", or no unit (regular); any other unit is unknown.
  Subgroup subgroup() const;

private:
  std::shared_ptr<const Impl> m_impl;
};

/// The keys that a signer used before the current one. Each key has signed the next one.
class RotationChain {
public:
  struct Impl;
  explicit RotationChain(std::shared_ptr<const Impl> impl);

  /// The key ids, oldest first. Empty if the CMS has no chain or an unreadable one. Nothing is verified.
  std::vector<std::string> previousKeyids() const;

private:
  friend struct Impl;
  std::shared_ptr<const Impl> m_impl;
};

/// One signature over the content of a package.
class Cms {
public:
  struct Impl;
  explicit Cms(std::shared_ptr<const Impl> impl);

  /// The signer's certificate; null if the CMS does not contain it. The files of this library always contain it.
  std::shared_ptr<const Certificate> certificate() const;

  RotationChain rotationChain() const;

private:
  friend struct Impl;
  std::shared_ptr<const Impl> m_impl;
};

/// The first CMS whose signer is a developer.
std::optional<Cms> developerCmsFromVector(const std::vector<Cms>& cmses);

/// The first CMS whose signer is a source: a distributor of other developers' packages.
std::optional<Cms> clientCmsFromVector(const std::vector<Cms>& cmses);

/// A package and its signatures. The file stays open: verifyCmses() checks the file that was read, even if the path has
/// been replaced meanwhile.
class FileWithCmses {
public:
  struct Impl;

  /// Opens the package at `path`, symlinks followed, and reads its signatures, not its content. A package that was
  /// never signed has no CMSes. Returns null if the path is not a regular file or cannot be opened, if the file is not
  /// a package, or if its signatures are malformed. Blocks while another process has a lease on the file, never for the
  /// other end of a FIFO.
  [[nodiscard]] static std::unique_ptr<FileWithCmses> fromPath(const std::string& path);
  ~FileWithCmses();
  FileWithCmses(const FileWithCmses&) = delete;
  FileWithCmses& operator=(const FileWithCmses&) = delete;

  /// All CMSes, in the order in which they were added.
  std::vector<Cms> cmses() const;

  /// True if the content begins with an RPM header, there is at least one CMS, no two have the same role, and each of
  /// them has: a signer with a role whose certificate verifies against `caPath`; a signature that is valid for the
  /// content and for that certificate; no rotation chain or one in which every link is valid. Reads the whole file,
  /// once.
  [[nodiscard]] bool verifyCmses(const char* caPath);

private:
  explicit FileWithCmses(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> m_impl;
};

/// The system's directory of trusted certificate authorities: etc/krv/trusted-ca under the directory in the environment
/// variable KRV_ROOT_FS, or under "/" if the variable is unset or empty or the program runs with raised privileges.
std::string defaultCaPath();

} // namespace PackageSignatures
