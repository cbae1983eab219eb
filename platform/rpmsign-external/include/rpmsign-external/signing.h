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

/// Making signatures and looking at how they are stored. Only the hand tool and tests need this; every operation
/// throws SigningError when it cannot do what it says.
namespace PackageSignatures {

/// what() is a complete sentence part without the path of the package.
class SigningError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// A private key with its certificate.
class SigningKey {
public:
  struct Impl;

  /// Reads two PEM files. Throws when one of them cannot be read, when the key is protected by a pass phrase (nobody
  /// is asked for one) and when the two do not belong together.
  static SigningKey fromFiles(const std::string& keyPath, const std::string& certificatePath);

  std::string keyId() const;

  /// The role in which this certificate signs packages; none when it has neither or both.
  std::optional<Role> role() const;

  const Impl& impl() const { return *m_impl; }

private:
  explicit SigningKey(std::shared_ptr<const Impl> impl);
  std::shared_ptr<const Impl> m_impl;
};

/// Everything that goes into a signature.
struct Signer {
  SigningKey key;
  /// The signer's earlier keys, oldest first. They have to be a developer's.
  std::vector<SigningKey> previous = {};
  /// PEM file with certificates between the signer's and the certificate authority; empty for none.
  std::string chainPath = {};
};

/// The signatures of a package, and where they and the content that they cover are, in bytes from the start of the
/// file.
struct PackageLayout {
  struct StoredCms {
    Cms cms;
    off_t offset;
    std::size_t size;
  };
  std::vector<StoredCms> cmses; ///< in the order of FileWithCmses::cmses
  off_t contentOffset;          ///< the signed content reaches from here to the end of the file
};

/// Opens the package once, symlinks followed.
PackageLayout packageLayout(const std::string& packagePath);

/// A detached CMS over the content of the package, in DER. The file is not changed. Nothing but content that begins
/// with the magic of an RPM header is signed.
std::string makeCms(const std::string& packagePath, const Signer& signer);

/// Replaces the stored signatures by `container`, whatever it holds, or removes them when it is empty; the rest of
/// the package stays. The new file takes the old one's place in one step, with its mode, owner and extended
/// attributes. A symlink is followed, once: the file that was opened is the one that is replaced, in the directory that
/// was opened, and a file that has taken its place meanwhile is left alone, with an error. On failure the old file is
/// untouched and no other file stays behind.
void replaceContainer(const std::string& packagePath, std::string_view container);

/// Adds a signature to the package, in the manner of replaceContainer. It takes the place of one of the same role.
void signPackage(const std::string& packagePath, const Signer& signer);

} // namespace PackageSignatures
