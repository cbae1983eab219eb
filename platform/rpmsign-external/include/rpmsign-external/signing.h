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

/// A private key with its certificate.
class SigningKey {
public:
  struct Impl;

  /// Reads two PEM files. Throws SigningError if one cannot be read, if the key has a pass phrase (there is no prompt),
  /// or if the key and the certificate do not belong together.
  static SigningKey fromFiles(const std::string& keyPath, const std::string& certificatePath);

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
