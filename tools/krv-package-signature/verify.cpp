// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-package-signature/commands.h"
#include "tools/krv-package-signature/packages.h"

#include <set>

namespace {

using PackageSignatures::Cms;
using PackageSignatures::SigningError;

/// Names the bad certificate first, because verifyCmses() only returns true or false.
void verifyPackage(const std::string& path, const std::string& caPath) {
  const auto file = openPackage(path);
  const std::vector<Cms> cmses = file->cmses();
  if (cmses.empty())
    throw SigningError("it is not signed");
  std::set<std::string> roles;
  for (const Cms& cms : cmses) {
    const std::string role = roleName(cms);
    if (role.empty())
      throw SigningError("a certificate in it is neither a developer's nor a source's");
    if (!roles.insert(role).second)
      throw SigningError("it has two signatures of a " + role);
    if (!cms.certificate()->verify(caPath.c_str()))
      throw SigningError("the " + role + "'s certificate does not verify against the authorities in " + caPath);
  }
  if (!file->verifyCmses(caPath.c_str()))
    throw SigningError("its signatures or key rotations are not valid");
  std::cout << path << ": OK" << std::endl;
}

} // namespace

bool verify(const Options& options) {
  const std::string caPath = options.caPath ? *options.caPath : PackageSignatures::defaultCaPath();
  return forEachPackage(options.packages, [&](const std::string& path) { verifyPackage(path, caPath); });
}
