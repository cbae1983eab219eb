// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Sandbox {

/// The RPM database under the root, without the files of its packages. Each call locks it separately, so that other
/// programs can use it. All errors are Common::Error, Internal.
class PackageDatabase {
public:
  /// Makes `folder` RPM's database folder for the rest of the process, and creates it if it is missing.
  explicit PackageDatabase(std::filesystem::path folder);

  /// All entries, in the order of the database. They outlive the database.
  std::vector<Common::Rpm::Reader> packages() const;

  /// Replaces all entries with the name `name` by the entry with these bytes, or removes them if there is none. No file
  /// is changed and no script runs.
  void replace(const std::string& name, const std::optional<std::string>& entry);

private:
  std::vector<std::string> entriesOf(const std::string& name) const;

  std::filesystem::path m_folder;
};

} // namespace Sandbox
