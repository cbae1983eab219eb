// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/package_content.h"

#include "common/error/error.h"
#include "common/rpm/file_entry.h"

#include <utility>

namespace Acceptance {

namespace fs = std::filesystem;

namespace {

Common::Error contentError(const std::string& reason, const fs::path& path) {
  return {Common::ErrorCode::BadPackageContent, reason + path.string()};
}

void requirePlainName(const std::string& name) {
  const fs::path path = name;
  if (!path.is_absolute() || path.lexically_normal().native() != name || (path.filename().empty() && name != "/"))
    throw contentError("The package has an entry whose path is not absolute and normalised: ", name);
}

/// A path below a symlink could lead to a folder that the package must not write to; a file cannot have entries below
/// it.
void requireDirectoriesAbove(const PackagedFiles& files, const fs::path& path) {
  for (fs::path parent = path.parent_path(); !parent.empty(); parent = parent.parent_path()) {
    const auto found = files.find(parent);
    if (found != files.end() && found->second.type != fs::file_type::directory)
      throw contentError("The package has an entry below an entry that is not a directory: /", path);
  }
}

} // namespace

PackagedFiles checkedFiles(const Common::Rpm::Reader& package) {
  PackagedFiles files;
  for (PackagedFile& file : fileList(package)) {
    requirePlainName(file.name);
    const fs::path path = Common::Rpm::nameBelowRoot(file.name);
    if (files.contains(path))
      throw contentError("The package has two entries with the same path: /", path);
    if (!path.empty())
      files.emplace(path, std::move(file));
  }
  for (const auto& [path, file] : files)
    requireDirectoriesAbove(files, path);
  return files;
}

} // namespace Acceptance
