// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Support {

/// The arc of the roles.
inline const std::string krvArc = "2.25.157019916226857759528849042802738373896";

/// The properties of a certificate.
struct CertificateRequest {
  std::string authority = "root"; ///< empty for a self-signed certificate
  std::string key = "ec";
  std::string digest = "sha256";
  std::vector<std::string> extensions = {"extendedKeyUsage=" + krvArc + ".1"};
  std::string subject = {}; ///< "/CN=" and the name if empty
  int days = 30;
};

inline const std::vector<std::string> ofAnAuthority = {"basicConstraints=critical,CA:TRUE",
                                                       "keyUsage=keyCertSign,cRLSign"};

/// A trusted authority "root", whose certificates may be weak, revoked or of any date; Pki has ordinary ones.
class Authority {
public:
  /// Makes the authority in `folder`, which is created.
  explicit Authority(std::filesystem::path folder);

  std::filesystem::path trusted() const { return m_folder / "trusted"; }
  std::string pem(const std::string& name) const { return m_folder / (name + ".pem"); }
  std::string key(const std::string& name) const { return m_folder / (name + ".key.pem"); }

  void certify(const std::string& name, const CertificateRequest& request = {}) const;

  /// A certificate with these dates, each in the form YYYYMMDDHHMMSSZ. `kind` is "developer", "store" or "authority";
  /// an empty `authority` makes a self-signed one.
  void certifyBetween(const std::string& name, const std::string& start, const std::string& end,
                      const std::string& kind = "developer", const std::string& authority = "root") const;

  std::string hashOf(const std::string& name) const;

  void trust(const std::string& name) const;

  /// Writes the authority's current revocation list into the folder, over an existing one. `options` are those of
  /// `openssl ca`.
  void publishList(const std::string& authority, const std::vector<std::string>& options = {"-crldays", "30"}) const;

  void revoke(const std::string& name) const;

private:
  std::filesystem::path m_folder;
};

} // namespace Support
