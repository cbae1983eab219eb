// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/json.h"
#include "tools/krv-package-signature/packages.h"

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

std::string cmsToJson(const Cms& cms, const PackageLayout::Range& place) {
  const std::string role = roleName(cms);
  std::vector<std::string> previous;
  for (const std::string& keyId : cms.rotationChain().previousKeyids())
    previous.push_back(Json::text(keyId));
  return Json::object({{"role", role.empty() ? "null" : Json::text(role)},
                       {"keyId", Json::text(cms.certificate()->keyId())},
                       {"subgroup", Json::text(PackageSignatures::subgroupToString(cms.certificate()->subgroup()))},
                       {"previousKeyIds", Json::array(previous)},
                       {"offset", std::to_string(place.offset)},
                       {"size", std::to_string(place.size)}});
}

std::string packageToJson(const ShownPackage& package) {
  std::vector<std::string> cmses;
  for (std::size_t i = 0; i < package.cmses.size(); ++i)
    cmses.push_back(cmsToJson(package.cmses[i], package.layout.cmses.at(i)));
  return Json::object({{"path", Json::text(package.path)},
                       {"contentOffset", std::to_string(package.layout.contentOffset)},
                       {"cmses", Json::array(cmses)}});
}

} // namespace

bool show(const Options& options) {
  std::vector<std::string> objects;
  const bool allDone = forEachPackage(options.packages, [&](const std::string& path) {
    const ShownPackage package = readPackage(path);
    if (options.json)
      objects.push_back(packageToJson(package));
    else
      writeText(package);
  });
  if (options.json)
    std::cout << Json::array(objects) << '\n';
  return allDone;
}
