// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/packages.h"

#include <nlohmann/json.hpp>

namespace {

using PackageSignatures::Cms;
using PackageSignatures::PackageLayout;

struct ShownPackage {
  std::string path;
  std::vector<Cms> cmses;
  PackageLayout layout;
};

ShownPackage readPackage(const std::string& path) {
  return {.path = path, .cmses = openPackage(path)->cmses(), .layout = PackageSignatures::packageLayout(path)};
}

void writeText(const ShownPackage& package) {
  std::cout << package.path << '\n' << "  content: from byte " << package.layout.contentOffset << '\n';
  if (package.cmses.empty())
    std::cout << "  not signed\n";
  for (std::size_t i = 0; i < package.cmses.size(); ++i) {
    const Cms& cms = package.cmses[i];
    const std::string role = roleName(cms);
    std::cout << "  signature " << i + 1 << ": " << (role.empty() ? "no role" : role) << '\n'
              << "    stored: " << package.layout.cmses.at(i).size << " bytes from byte "
              << package.layout.cmses.at(i).offset << '\n'
              << "    key id: " << cms.certificate()->keyId() << '\n'
              << "    subgroup: " << PackageSignatures::subgroupToString(cms.certificate()->subgroup()) << '\n';
    for (const std::string& keyId : cms.rotationChain().previousKeyids())
      std::cout << "    previous key id: " << keyId << '\n';
  }
}

/// Keeps the order of the members.
using Json = nlohmann::ordered_json;

Json cmsToJson(const Cms& cms, const PackageLayout::Range& place) {
  const std::string role = roleName(cms);
  return {{"role", role.empty() ? Json() : Json(role)},
          {"keyId", cms.certificate()->keyId()},
          {"subgroup", PackageSignatures::subgroupToString(cms.certificate()->subgroup())},
          {"previousKeyIds", cms.rotationChain().previousKeyids()},
          {"offset", place.offset},
          {"size", place.size}};
}

Json packageToJson(const ShownPackage& package) {
  Json cmses = Json::array();
  for (std::size_t i = 0; i < package.cmses.size(); ++i)
    cmses.push_back(cmsToJson(package.cmses[i], package.layout.cmses.at(i)));
  return {{"path", package.path}, {"contentOffset", package.layout.contentOffset}, {"cmses", cmses}};
}

} // namespace

bool show(const Options& options) {
  Json objects = Json::array();
  const bool allDone = forEachPackage(options.packages, [&](const std::string& path) {
    const ShownPackage package = readPackage(path);
    if (options.json)
      objects.push_back(packageToJson(package));
    else
      writeText(package);
  });
  if (options.json)
    // JSON must be UTF-8; a path need not be.
    std::cout << objects.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
  return allDone;
}
