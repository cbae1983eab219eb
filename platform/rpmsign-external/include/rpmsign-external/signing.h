// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/role.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

/// Makes signatures and shows how they are stored. Only krv-package-signature and the tests need it. Every function
/// throws SigningError on failure.
namespace PackageSignatures {

/// what() gives the reason, without the path of the package.
class SigningError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Where the pass phrases of keys and the PINs of tokens come from. They are cleaned from memory after use and occur in
/// no message.
class PassPhrases {
public:
  class Impl;

  /// Gives none.
  PassPhrases();

  /// Asks on the controlling terminal, without echo. Blocks until there is an answer.
  static PassPhrases fromTerminal();

  /// The lines of a file, one for each key that needs a pass phrase, in the order in which the keys are loaded. The
  /// file may be a pipe and is read at once. Throws SigningError if it cannot be read or has 16 KiB or more.
  static PassPhrases fromFile(const std::string& path);

  Impl& impl() const { return *m_impl; }

private:
  explicit PassPhrases(std::shared_ptr<Impl> impl);
  std::shared_ptr<Impl> m_impl;
};

/// A private key with its certificate.
class SigningKey {
public:
  struct Impl;

  /// Loads a private key, from a PEM file or, if `key` begins with "pkcs11:", from a token (RFC 7512), and its
  /// certificate from a PEM file. A token needs OpenSSL's provider "pkcs11", which is loaded unless OpenSSL's
  /// configuration has done so. Throws SigningError if one of them cannot be read, if they do not belong together, if a
  /// pass phrase is needed and not given, or if the URI contains a PIN, which other users could see.
  static SigningKey load(const std::string& key, const std::string& certificatePath,
                         const PassPhrases& passPhrases = PassPhrases());

  std::string keyId() const;

  /// The role in which this certificate signs packages; nothing if it has neither or both.
  std::optional<Role> role() const;

  const Impl& impl() const { return *m_impl; }

private:
  explicit SigningKey(std::shared_ptr<const Impl> impl);
  std::shared_ptr<const Impl> m_impl;
};

/// The keys and certificates of a new signature.
struct Signer {
  SigningKey key;
  /// The signer's earlier keys, oldest first. Each must have a developer's certificate.
  std::vector<SigningKey> previous = {};
  /// PEM file with the certificates between the signer's and the certificate authority's; may be empty.
  std::string chainPath = {};
};

/// The places of the signatures and of the signed content, in bytes from the start of the file.
struct PackageLayout {
  struct StoredCms {
    Cms cms;
    off_t offset;
    std::size_t size;
  };
  std::vector<StoredCms> cmses; ///< in the order of FileWithCmses::cmses()
  off_t contentOffset;          ///< the signed content reaches from here to the end of the file
};

/// Opens the package once, symlinks followed.
PackageLayout packageLayout(const std::string& packagePath);

/// The same for a package that is already open; the descriptor stays the caller's.
PackageLayout packageLayout(int descriptor);

/// A detached CMS over the content of the package, in DER. The file is not changed. Throws SigningError unless the
/// content begins with the magic of an RPM header.
std::string makeCms(const std::string& packagePath, const Signer& signer);

/// Replaces the stored signatures by `container`, which is not checked, or removes them if it is empty; the rest of the
/// package stays. The new file replaces the old one in one rename and keeps its mode, owner and extended attributes. A
/// symlink is resolved once. If the path of the opened file holds another file by then, that file is left alone and
/// SigningError is thrown. On failure the old file is unchanged and the temporary file is removed.
void replaceContainer(const std::string& packagePath, std::string_view container);

/// Adds a signature to the package like replaceContainer(). A signature of the same role is replaced.
void signPackage(const std::string& packagePath, const Signer& signer);

} // namespace PackageSignatures
