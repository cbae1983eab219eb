// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"
#include "common/rpm/reader.h"
#include "common/text/printable.h"
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/dates.h"
#include "tools/krv-package-signature/packages.h"

#include <rpmsign-external/signing.h>
#include <rpmsign-external/verification.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

namespace {

using Common::Rpm::Reader;
using PackageSignatures::PackageLayout;
using PackageSignatures::SignerDescription;

/// Name, version and architecture from the header. A value that cannot be read is missing.
struct Identity {
  std::optional<std::string> name;
  std::optional<std::string> version; ///< "[epoch:]version-release"
  std::optional<std::string> architecture;
};

struct Package {
  PackageLayout layout;
  Identity identity;
};

std::optional<std::string> textOf(const Reader& reader, std::int32_t tag) {
  try {
    return reader.tag(tag);
  } catch (const Common::Error&) {
    return std::nullopt;
  }
}

Identity identityOf(int descriptor, off_t header) {
  try {
    const Reader reader = Reader::unverified(descriptor, header);
    return {.name = textOf(reader, Common::Rpm::Tag::Name),
            .version = textOf(reader, Common::Rpm::Tag::FullVersion),
            .architecture = textOf(reader, Common::Rpm::Tag::Architecture)};
  } catch (const Common::Error&) {
    return {};
  }
}

/// Opens the package once: otherwise the signatures of one file could be shown with the name of another.
Package readPackage(const std::string& path) {
  const Common::Posix::FileDescriptor descriptor = openPackage(path);
  PackageLayout layout = PackageSignatures::packageLayout(descriptor.get());
  const off_t header = layout.contentOffset;
  return {.layout = std::move(layout), .identity = identityOf(descriptor.get(), header)};
}

void writeLine(const std::string& label, const std::optional<std::string>& value) {
  std::cout << label << ": " << (value ? Common::printable(*value) : "unknown") << '\n';
}

std::optional<std::string> dateText(const std::optional<std::time_t>& time) {
  return time ? std::optional(toText(*time)) : std::nullopt;
}

void writeText(const PackageLayout::StoredCms& stored) {
  const SignerDescription signer = PackageSignatures::describeSigner(stored.cms);
  std::cout << "    stored: " << stored.size << " bytes from byte " << stored.offset << '\n';
  writeLine("    key id", signer.keyId);
  // Escaped already, as RFC 2253 demands.
  std::cout << "    subject: " << signer.subject << '\n' << "    issuer: " << signer.issuer << '\n';
  writeLine("    valid from", dateText(signer.notBefore));
  writeLine("    valid until", dateText(signer.notAfter));
  writeLine("    subgroup", PackageSignatures::subgroupToString(signer.subgroup));
  for (const std::string& keyId : stored.cms.rotationChain().previousKeyids())
    writeLine("    previous key id", keyId);
}

void writeText(const std::string& path, const Package& package) {
  std::cout << Common::printable(path) << '\n';
  writeLine("  name", package.identity.name);
  writeLine("  version", package.identity.version);
  writeLine("  architecture", package.identity.architecture);
  std::cout << "  content: from byte " << package.layout.contentOffset << '\n';
  if (package.layout.cmses.empty())
    std::cout << "  not signed\n";
  for (std::size_t i = 0; i < package.layout.cmses.size(); ++i) {
    const std::string role = roleName(PackageSignatures::describeSigner(package.layout.cmses[i].cms).role);
    std::cout << "  signature " << i + 1 << ": " << (role.empty() ? "no role" : role) << '\n';
    writeText(package.layout.cmses[i]);
  }
}

/// Keeps the order of the members.
using Json = nlohmann::ordered_json;

Json toJson(const std::optional<std::string>& value) {
  return value ? Json(*value) : Json();
}

Json cmsToJson(const PackageLayout::StoredCms& stored) {
  const SignerDescription signer = PackageSignatures::describeSigner(stored.cms);
  const std::string role = roleName(signer.role);
  return {{"role", role.empty() ? Json() : Json(role)},
          {"keyId", signer.keyId},
          {"subject", signer.subject},
          {"issuer", signer.issuer},
          {"notBefore", toJson(dateText(signer.notBefore))},
          {"notAfter", toJson(dateText(signer.notAfter))},
          {"subgroup", PackageSignatures::subgroupToString(signer.subgroup)},
          {"previousKeyIds", stored.cms.rotationChain().previousKeyids()},
          {"offset", stored.offset},
          {"size", stored.size}};
}

Json packageToJson(const std::string& path, const Package& package) {
  Json cmses = Json::array();
  for (const PackageLayout::StoredCms& stored : package.layout.cmses)
    cmses.push_back(cmsToJson(stored));
  return {{"path", path},
          {"name", toJson(package.identity.name)},
          {"version", toJson(package.identity.version)},
          {"architecture", toJson(package.identity.architecture)},
          {"contentOffset", package.layout.contentOffset},
          {"cmses", cmses}};
}

} // namespace

bool show(const Options& options) {
  Json objects = Json::array();
  const bool allDone = forEachPackage(options.packages, [&](const std::string& path) {
    const Package package = readPackage(path);
    if (options.json)
      objects.push_back(packageToJson(path, package));
    else
      writeText(path, package);
    return std::vector<std::string>();
  });
  if (options.json)
    // In ASCII, because a terminal obeys some control characters above it. Bytes that are not UTF-8 are replaced.
    std::cout << objects.dump(-1, ' ', true, Json::error_handler_t::replace) << '\n';
  return allDone;
}
