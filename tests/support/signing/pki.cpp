// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/signing/pki.h"

#include "tests/support/process/process.h"

namespace Support {

namespace {

PackageSignatures::SigningKey signingKey(const Pki& pki, const std::string& name) {
  return PackageSignatures::SigningKey::load(pki.key(name), pki.certificate(name));
}

} // namespace

Pki::Pki() {
  runOrThrow({KRV_SOURCE_DIRECTORY "/sandbox/make-pki", m_directory.path().string()});
}

const Pki& Pki::instance() {
  static const Pki pki;
  return pki;
}

std::string Pki::keyId(const std::string& name) const {
  return signingKey(*this, name).keyId();
}

PackageSignatures::Signer Pki::signer(const std::string& name, const std::vector<std::string>& previous) const {
  PackageSignatures::Signer signer{.key = signingKey(*this, name)};
  for (const std::string& earlier : previous)
    signer.previous.push_back(signingKey(*this, earlier));
  return signer;
}

void sign(const std::filesystem::path& package, const std::string& name, const std::vector<std::string>& previous) {
  PackageSignatures::signPackage(package, Pki::instance().signer(name, previous));
}

void trustAuthorityUnder(const std::filesystem::path& root) {
  std::filesystem::create_directories(root / "etc/krv");
  std::filesystem::copy(Pki::instance().trustedCa(), root / "etc/krv/trusted-ca");
}

} // namespace Support
