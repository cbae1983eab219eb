// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/signatures/package_cmses.h"

#include "common/error/error.h"

#include <optional>
#include <utility>

namespace Common {

namespace {

using PackageSignatures::Cms;

void verifyPackage(PackageSignatures::FileWithCmses& file, const std::vector<Cms>& cmses) {
  const auto caPath = PackageSignatures::defaultCaPath();
  if (!developerCertificate(cmses).verify(caPath.c_str()))
    throw Error(ErrorCode::IllegalDeveloperCertificate, "Package is signed with a non-legal developer certificate");
  if (const std::optional<Cms> source = PackageSignatures::clientCmsFromVector(cmses)) {
    const auto certificate = source->certificate();
    // A missing certificate counts as one that chains to no authority.
    if (!certificate || !certificate->verify(caPath.c_str()))
      throw Error(ErrorCode::IllegalSourceCertificate, "Package is signed with a non-legal source certificate");
  }
  if (!file.verifyCmses(caPath.c_str()))
    throw Error(ErrorCode::SignatureVerificationFailed, "Package signature verification failed");
}

} // namespace

std::vector<Cms> readPackageCmses(const std::string& path, bool verify) {
  const auto file = PackageSignatures::FileWithCmses::fromPath(path);
  if (!file)
    throw Error(ErrorCode::FileNotFound, "Couldn't open RPM package for reading cmses: " + path);
  std::vector<Cms> cmses = file->cmses();
  if (verify)
    verifyPackage(*file, cmses);
  return cmses;
}

PackageSignatures::Certificate developerCertificate(const std::vector<Cms>& cmses) {
  const std::optional<Cms> cms = PackageSignatures::developerCmsFromVector(cmses);
  const auto certificate = cms ? cms->certificate() : nullptr;
  if (!certificate)
    throw Error(ErrorCode::MissingDeveloperSignature, "Package doesn't have developer certificate");
  return *certificate;
}

DeveloperIdentity developerIdentity(const std::vector<Cms>& cmses) {
  const std::optional<Cms> cms = PackageSignatures::developerCmsFromVector(cmses);
  const auto certificate = cms ? cms->certificate() : nullptr;
  if (!certificate)
    throw Error(ErrorCode::MissingDeveloperSignature, "Package doesn't have developer signature");
  std::string keyId = certificate->keyId();
  std::string subgroup = PackageSignatures::subgroupToString(certificate->subgroup());
  std::vector<std::string> previousKeyIds = cms->rotationChain().previousKeyids();
  return {std::move(keyId), std::move(subgroup), std::move(previousKeyIds)};
}

} // namespace Common
