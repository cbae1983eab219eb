// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The CMS signatures of an RPM package: who signed it, and whether that holds.
///
/// Whatever a package contains, no operation of this header throws because of it, crashes, or allocates more than the
/// file really holds. None of them leaves anything in OpenSSL's error queue (what was in it before is gone as well).
/// The values share immutable state, so copies are cheap and outlive the file that they came from.
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

/// The certificate of a signer, together with the other certificates that came with it.
class Certificate {
public:
  struct Impl;
  explicit Certificate(std::shared_ptr<const Impl> impl);

  /// True when the certificate is valid today, may be used for signatures and chains to a certificate authority of
  /// `caPath`, a directory in the form of openssl-rehash(1). What came with the certificate may fill the middle of the
  /// chain and is never trusted. No certificate of the chain may be weak or revoked by a list in the directory, and no
  /// authority in it may be restricted to other roles: docs/signature-format.md has the whole of it.
  [[nodiscard]] bool verify(const char* caPath) const;

  /// SHA-256 of the DER form of the certificate's SubjectPublicKeyInfo, as 64 lower-case hexadecimal digits.
  std::string keyId() const;

  /// From the subject's first organizational unit: "system", "extended", none at all (regular); any other is unknown.
  Subgroup subgroup() const;

private:
  std::shared_ptr<const Impl> m_impl;
};

/// The keys that a signer used before the present one. Each of them vouches for the next.
class RotationChain {
public:
  struct Impl;
  explicit RotationChain(std::shared_ptr<const Impl> impl);

  /// The key ids, oldest first. Empty when the CMS has no chain and when its chain cannot be read. Nothing is verified.
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

  /// The signer's certificate; null when the CMS does not carry it. The files of this library always do.
  std::shared_ptr<const Certificate> certificate() const;

  RotationChain rotationChain() const;

private:
  friend struct Impl;
  std::shared_ptr<const Impl> m_impl;
};

/// The first CMS whose signer is a developer.
std::optional<Cms> developerCmsFromVector(const std::vector<Cms>& cmses);

/// The first CMS whose signer is a source, that is, somebody who distributes packages of others.
std::optional<Cms> clientCmsFromVector(const std::vector<Cms>& cmses);

/// A package and the signatures stored in it. The file stays open: what was read is what verifyCmses looks at, even
/// when another file has taken the path meanwhile.
class FileWithCmses {
public:
  /// Opens the package at `path`, links followed, and reads its signatures; the content is not touched. A package that
  /// was never signed has no CMSes. Null when the path is not a regular file that can be opened, when the file is no
  /// package, and when anything about its signatures is out of form. It waits for the holder of a lease on the file, as
  /// every open does, and never for the other end of a FIFO.
  [[nodiscard]] static std::unique_ptr<FileWithCmses> fromPath(const std::string& path);
  ~FileWithCmses();
  FileWithCmses(const FileWithCmses&) = delete;
  FileWithCmses& operator=(const FileWithCmses&) = delete;

  /// All CMSes, in the order in which they were added.
  std::vector<Cms> cmses() const;

  /// True when the content begins with an RPM header, there is at least one CMS, no two have the same role, and each of
  /// them has a signer with a role whose certificate verifies against `caPath`, a signature that holds for the content
  /// and for that certificate, and a rotation chain, if any, that holds in every link. Reads the whole file, once.
  [[nodiscard]] bool verifyCmses(const char* caPath);

private:
  struct Impl;
  explicit FileWithCmses(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> m_impl;
};

/// The system's directory of trusted certificate authorities: etc/krv/trusted-ca under the directory that the
/// environment variable KRV_ROOT_FS names, unless that is empty or the program runs with raised privileges; else under
/// "/".
std::string defaultCaPath();

} // namespace PackageSignatures
