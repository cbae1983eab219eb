// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/planning.h"

#include "common/error/error.h"
#include "sandbox/entries.h"

#include <algorithm>
#include <array>
#include <set>

namespace Sandbox {

namespace fs = std::filesystem;

namespace {

using Common::Rpm::PackagedFile;
using fs::file_type;

constexpr fs::perms permissionBits = fs::perms::all;
constexpr fs::perms ordinaryDirectory = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                        fs::perms::others_read | fs::perms::others_exec;

Common::Error conflict(const std::string& reason, const fs::path& path) {
  return {Common::ErrorCode::FileConflict, reason + "/" + path.string()};
}

bool isFileOrLink(file_type type) {
  return type == file_type::regular || type == file_type::symlink;
}

/// A package that could write there would be the one to say who is trusted and what is installed.
bool isReserved(const fs::path& path) {
  static const auto reserved = std::to_array<fs::path>({"var/lib/krv", "var/lib/rpm", "etc/krv"});
  return std::ranges::any_of(reserved, [&](const fs::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
  });
}

/// Whether two packages mean the same file, so that both may own it.
bool isSame(const PackagedFile& left, const PackagedFile& right) {
  return left.type == right.type && (left.permissions & permissionBits) == (right.permissions & permissionBits) &&
         left.size == right.size && left.digest == right.digest && left.target == right.target &&
         left.isGhost == right.isGhost;
}

class Installation {
public:
  Installation(const fs::path& root, const Ownership& ownership) : m_root(root), m_ownership(ownership) {}

  void place(const fs::path& path, const PackagedFile& file) {
    if (isReserved(path))
      throw conflict("The package has a file in a folder that is not for packages: ", path);
    if (file.type != file_type::directory && !isFileOrLink(file.type))
      return; // the extraction leaves it out
    makeParents(path);
    if (file.type == file_type::directory)
      placeDirectory(path, file);
    else
      placeFile(path, file);
  }

  ChangePlan take() {
    std::ranges::reverse(m_plan.directoryModes);
    return std::move(m_plan);
  }

private:
  file_type typeBelowRoot(const fs::path& path) {
    if (m_made.contains(path.parent_path()))
      return file_type::not_found;
    return typeOf(m_root / path);
  }

  void makeParents(const fs::path& path) {
    fs::path parent;
    for (const fs::path& part : path.parent_path()) {
      parent /= part;
      if (m_made.contains(parent))
        continue;
      const file_type type = typeBelowRoot(parent);
      if (type == file_type::not_found)
        make(parent, ordinaryDirectory);
      else if (type != file_type::directory)
        throw conflict("The package has a file below what is no directory: ", parent);
    }
  }

  void make(const fs::path& directory, fs::perms permissions) {
    m_made.insert(directory);
    m_plan.newDirectories.push_back(directory);
    m_plan.directoryModes.push_back({.path = directory, .permissions = permissions});
  }

  void placeDirectory(const fs::path& path, const PackagedFile& file) {
    const file_type type = typeBelowRoot(path);
    const fs::perms permissions = file.permissions & permissionBits;
    if (type == file_type::not_found && !file.isGhost)
      make(path, permissions);
    else if (type != file_type::directory && type != file_type::not_found)
      throw conflict("The package has a directory where something else is: ", path);
    else if (type == file_type::directory && m_ownership.earlier.contains(path) && !m_ownership.others.contains(path))
      m_plan.directoryModes.push_back({.path = path, .permissions = permissions});
  }

  void placeFile(const fs::path& path, const PackagedFile& file) {
    const file_type type = typeBelowRoot(path);
    if (isSharedWithOthers(path, file) && type == file.type)
      return;
    const bool isOwn = m_ownership.earlier.contains(path) && !m_ownership.others.contains(path);
    if (type != file_type::not_found && (!isOwn || type == file_type::directory))
      throw conflict("The package has a file where another one is: ", path);
    if (file.isGhost)
      return;
    m_plan.changes.push_back({.kind = type == file_type::not_found ? Change::Kind::Add : Change::Kind::Replace,
                              .number = static_cast<std::size_t>(file.index),
                              .path = path});
  }

  bool isSharedWithOthers(const fs::path& path, const PackagedFile& file) const {
    const auto [first, last] = m_ownership.others.equal_range(path);
    if (!std::all_of(first, last, [&](const auto& other) { return isSame(file, other.second); }))
      throw conflict("The package has a file that another package has differently: ", path);
    return first != last;
  }

  const fs::path& m_root;
  const Ownership& m_ownership;
  std::set<fs::path> m_made;
  ChangePlan m_plan;
};

/// Adds to `plan` that the files of the installed version go which neither `kept` nor another package has.
void planObsoletes(const fs::path& root, const Ownership& ownership, const PackagedFiles& kept, std::size_t number,
                   ChangePlan& plan) {
  for (const auto& [path, file] : ownership.earlier) {
    if (kept.contains(path) || ownership.others.contains(path) || isReserved(path) || !isReachedDirectly(root, path))
      continue;
    if (file.type == file_type::directory)
      plan.obsoleteDirectories.push_back(path);
    else if (isFileOrLink(file.type) && isFileOrLink(typeOf(root / path)))
      plan.changes.push_back({.kind = Change::Kind::Delete, .number = number++, .path = path});
  }
  std::ranges::reverse(plan.obsoleteDirectories);
}

} // namespace

ChangePlan planInstallation(const fs::path& root, const PackagedFiles& files, const Ownership& ownership) {
  Installation installation(root, ownership);
  for (const auto& [path, file] : files)
    installation.place(path, file);
  ChangePlan plan = installation.take();
  planObsoletes(root, ownership, files, files.size() + 1, plan);
  return plan;
}

ChangePlan planRemoval(const fs::path& root, const Ownership& ownership) {
  ChangePlan plan;
  planObsoletes(root, ownership, {}, 0, plan);
  return plan;
}

} // namespace Sandbox
