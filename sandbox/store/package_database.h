// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Sandbox {

/// The RPM database under the root, without the files of its packages. Each call locks it for itself, so that other
/// programs get their turn; the same errors in all of them: Common::Error, Internal.
class PackageDatabase {
public:
  /// Makes the database in `folder` RPM's for the rest of the process, and the folder if there is none.
  explicit PackageDatabase(std::filesystem::path folder);

  /// All entries, in the database's order. They outlive the database.
  std::vector<Common::Rpm::Reader> packages() const;

  /// Makes the entry with these bytes, or none at all, the only one that is called `name`. Nothing else happens: no
  /// file is touched and no script is run.
  void replace(const std::string& name, const std::optional<std::string>& entry);

private:
  std::vector<std::string> entriesOf(const std::string& name) const;

  std::filesystem::path m_folder;
};

} // namespace Sandbox
