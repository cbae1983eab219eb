// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/package_rules.h"

#include "acceptance/package_header.h"
#include "common/error/error.h"
#include "common/rpm/version.h"
#include "common/text/utf8.h"

#include <algorithm>

namespace Acceptance {

namespace {

using Common::DeveloperIdentity;
using Common::Error;
using Common::ErrorCode;
using Common::isOwnOrEarlierKey;
using Common::Rpm::compareVersions;
using Common::Rpm::Reader;
using Common::Rpm::VersionComparison;

bool isControlOrSpace(char character) {
  const auto code = static_cast<unsigned char>(character);
  return code <= ' ' || code == 0x7f;
}

bool has(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

/// Names and versions are sent over the bus, which allows only UTF-8 and disconnects a service whose answer is too
/// large; the list of all packages is one answer. rpmbuild puts name, version and release into a file name, so none of
/// them is longer.
bool fitsTheBus(const std::string& text) {
  constexpr std::size_t longest = 255;
  return text.size() <= longest && Common::asUtf8(text) == text;
}

void requireDeveloper(const PackageIdentity& package, const PackageIdentity& installed) {
  const DeveloperIdentity& own = package.developer;
  const DeveloperIdentity& other = installed.developer;
  if (isOwnOrEarlierKey(other.keyId, own.keyId, own.previousKeyIds))
    return;
  if (isOwnOrEarlierKey(own.keyId, other.keyId, other.previousKeyIds))
    throw Error(ErrorCode::DeveloperKeySuperseded,
                "The installed package is signed with a newer key of its developer: " + package.name);
  throw Error(ErrorCode::DeveloperMismatch, "The installed package is from another developer: " + package.name);
}

} // namespace

/// The registry separates names by spaces and keys by "->". RPM uses the name "gpg-pubkey" for the keys that it trusts.
void requireUsableName(const std::string& name) {
  if (!fitsTheBus(name))
    throw Error(ErrorCode::BadPackageID, "The package has a name that is too long or not UTF-8");
  if (name.empty() || name == "gpg-pubkey" || has(name, "/") || has(name, "->") ||
      std::ranges::any_of(name, isControlOrSpace))
    throw Error(ErrorCode::BadPackageID, "The package has a name that cannot be used: '" + name + "'");
}

/// A dash would make "version-release" ambiguous, a colon "epoch:version".
void requireVersion(const Reader& package) {
  for (const auto tag : {Common::Rpm::Tag::Version, Common::Rpm::Tag::Release}) {
    const std::string text = package.tag(tag);
    if (!fitsTheBus(text))
      throw Error(ErrorCode::BadPackageVersion, "The package has a version or release that is too long or not UTF-8");
    if (text.empty() || has(text, "-") || has(text, ":") || std::ranges::any_of(text, isControlOrSpace))
      throw Error(ErrorCode::BadPackageVersion, "The package has an invalid version or release: '" + text + "'");
  }
}

void requireArchitecture(const Reader& package) {
  if (!fitsArchitecture(package))
    throw Error(ErrorCode::BadPackageArchitecture,
                "The package is for another architecture: " + package.tag(Common::Rpm::Tag::Architecture));
}

void requireNoInstallationTags(const Reader& package) {
  if (hasInstallationTags(package))
    throw Error(ErrorCode::BadPackageContent, "The package header has tags of an installed package");
}

void requireInstallable(const Reader& package) {
  requireUsableName(package.tag(Common::Rpm::Tag::Name));
  requireVersion(package);
  requireArchitecture(package);
  requireNoInstallationTags(package);
}

void requireSuccessor(const PackageIdentity& package, const PackageIdentity& installed) {
  requireDeveloper(package, installed);
  if (compareVersions(package.version, installed.version) == VersionComparison::Newer)
    return;
  const std::string versions = package.name + " " + package.version + " over " + installed.version;
  if (compareVersions(installed.version, package.version) == VersionComparison::Newer)
    throw Error(ErrorCode::DowngradeAttempt, "A newer version of the package is installed: " + versions);
  throw Error(ErrorCode::SamePackageIsInstalled, "This version of the package is installed: " + versions);
}

} // namespace Acceptance
