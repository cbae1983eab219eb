// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

namespace Sandbox {

/// What the service knows of an installed package.
struct StoredPackage {
  std::string version; ///< version and release joined with "-"
  std::string source;
  std::string developerKeyId;
  std::vector<std::string> previousKeyIds;
  std::string developerSubgroup;
};

/// The packages that count as installed, in memory. Installing and removing also adds an event to the registry.
class PackageStore {
public:
  /// The package called `name`. Throws Common::Error: PackageNotExist.
  const StoredPackage& get(const std::string& name) const;

  /// Takes the package file at `path` for installed, as if `source` had distributed it, over an earlier version of the
  /// same name. Throws Common::Error with what is wrong about the file or its signatures, which are verified.
  void install(const std::string& path, const std::string& source);

  /// Throws Common::Error: PackageNotExist.
  void remove(const std::string& name);

private:
  std::map<std::string, StoredPackage> m_packages;
};

} // namespace Sandbox
