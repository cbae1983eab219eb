// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/packages.h"

#include <nlohmann/json.hpp>

namespace {

using PackageSignatures::Cms;
using PackageSignatures::PackageLayout;

void writeText(const std::string& path, const PackageLayout& package) {
  std::cout << path << '\n' << "  content: from byte " << package.contentOffset << '\n';
  if (package.cmses.empty())
    std::cout << "  not signed\n";
  for (std::size_t i = 0; i < package.cmses.size(); ++i) {
    const auto& [cms, offset, size] = package.cmses[i];
    const std::string role = roleName(cms);
    std::cout << "  signature " << i + 1 << ": " << (role.empty() ? "no role" : role) << '\n'
              << "    stored: " << size << " bytes from byte " << offset << '\n'
              << "    key id: " << cms.certificate()->keyId() << '\n'
              << "    subgroup: " << PackageSignatures::subgroupToString(cms.certificate()->subgroup()) << '\n';
    for (const std::string& keyId : cms.rotationChain().previousKeyids())
      std::cout << "    previous key id: " << keyId << '\n';
  }
}

/// Keeps the order of the members.
using Json = nlohmann::ordered_json;

Json cmsToJson(const PackageLayout::StoredCms& stored) {
  const Cms& cms = stored.cms;
  const std::string role = roleName(cms);
  return {{"role", role.empty() ? Json() : Json(role)},
          {"keyId", cms.certificate()->keyId()},
          {"subgroup", PackageSignatures::subgroupToString(cms.certificate()->subgroup())},
          {"previousKeyIds", cms.rotationChain().previousKeyids()},
          {"offset", stored.offset},
          {"size", stored.size}};
}

Json packageToJson(const std::string& path, const PackageLayout& package) {
  Json cmses = Json::array();
  for (const PackageLayout::StoredCms& stored : package.cmses)
    cmses.push_back(cmsToJson(stored));
  return {{"path", path}, {"contentOffset", package.contentOffset}, {"cmses", cmses}};
}

} // namespace

bool show(const Options& options) {
  Json objects = Json::array();
  const bool allDone = forEachPackage(options.packages, [&](const std::string& path) {
    const PackageLayout package = PackageSignatures::packageLayout(path);
    if (options.json)
      objects.push_back(packageToJson(path, package));
    else
      writeText(path, package);
  });
  if (options.json)
    // JSON must be UTF-8; a path need not be.
    std::cout << objects.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
  return allDone;
}
