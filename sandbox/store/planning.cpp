// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/planning.h"

#include "acceptance/reserved_paths.h"
#include "common/error/error.h"

#include <algorithm>
#include <optional>
#include <set>

namespace Sandbox {

namespace fs = std::filesystem;

namespace {

using Acceptance::PackagedFile;
using Acceptance::PackagedFiles;
using fs::file_type;

constexpr fs::perms permissionBits = fs::perms::all;
/// Without the sticky bit, all users could remove each other's files in a directory that all can write to.
constexpr fs::perms directoryBits = fs::perms::all | fs::perms::sticky_bit;
constexpr fs::perms ordinaryDirectory = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                        fs::perms::others_read | fs::perms::others_exec;

Common::Error conflict(const std::string& reason, const fs::path& path) {
  return {Common::ErrorCode::FileConflict, reason + "/" + path.string()};
}

bool isFileOrLink(file_type type) {
  return type == file_type::regular || type == file_type::symlink;
}

std::optional<Entry> entryOf(const Directory& root, const fs::path& path) {
  const std::optional<Place> place = findPlace(root, path);
  return place ? place->entry() : std::nullopt;
}

/// Whether two packages have the same file, so that both may own it.
bool isSame(const PackagedFile& left, const PackagedFile& right) {
  return left.type == right.type && (left.permissions & permissionBits) == (right.permissions & permissionBits) &&
         left.size == right.size && left.digest == right.digest && left.target == right.target &&
         left.isGhost == right.isGhost;
}

class Installation {
public:
  Installation(const Directory& root, const Ownership& ownership) : m_root(root), m_ownership(ownership) {}

  void place(const fs::path& path, const PackagedFile& file) {
    Acceptance::requireUnreserved(path, file.type);
    if (file.type != file_type::directory && !isFileOrLink(file.type))
      return; // the extraction skips it
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
  std::optional<Entry> entryAt(const fs::path& path) {
    return m_made.contains(path.parent_path()) ? std::nullopt : entryOf(m_root, path);
  }

  void makeParents(const fs::path& path) {
    fs::path parent;
    for (const fs::path& part : path.parent_path()) {
      parent /= part;
      if (m_made.contains(parent) || m_found.contains(parent))
        continue;
      const std::optional<Entry> entry = entryAt(parent);
      if (!entry)
        make(parent, ordinaryDirectory);
      else if (entry->type == file_type::directory)
        m_found.insert(parent);
      else
        throw conflict("The package has a file below a path that is not a directory: ", parent);
    }
  }

  void make(const fs::path& directory, fs::perms permissions) {
    m_made.insert(directory);
    m_plan.newDirectories.push_back(directory);
    m_plan.directoryModes.push_back({.path = directory, .permissions = permissions});
  }

  void placeDirectory(const fs::path& path, const PackagedFile& file) {
    const std::optional<Entry> entry = entryAt(path);
    const fs::perms permissions = file.permissions & directoryBits;
    if (!entry && !file.isGhost)
      make(path, Acceptance::leadsToReserved(path) ? ordinaryDirectory : permissions);
    else if (entry && entry->type != file_type::directory)
      throw conflict("The package has a directory at the path of another entry: ", path);
    else if (entry && isOwn(path) && !Acceptance::leadsToReserved(path))
      m_plan.directoryModes.push_back({.path = path,
                                       .permissions = permissions | (entry->permissions & fs::perms::sticky_bit),
                                       .earlier = entry->permissions});
  }

  void placeFile(const fs::path& path, const PackagedFile& file) {
    const std::optional<Entry> entry = entryAt(path);
    if (isSharedWithOthers(path, file) && entry && entry->type == file.type)
      return;
    if (entry && (!isOwn(path) || entry->type == file_type::directory))
      throw conflict("The package has a file at the path of another entry: ", path);
    if (file.isGhost)
      return;
    m_plan.changes.push_back({.kind = entry ? Change::Kind::Replace : Change::Kind::Add,
                              .number = static_cast<std::size_t>(file.index),
                              .path = path,
                              .oldInode = entry ? entry->inode : 0});
  }

  bool isOwn(const fs::path& path) const {
    return m_ownership.earlier.contains(path) && !m_ownership.others.contains(path);
  }

  bool isSharedWithOthers(const fs::path& path, const PackagedFile& file) const {
    const auto [first, last] = m_ownership.others.equal_range(path);
    if (!std::all_of(first, last, [&](const auto& other) { return isSame(file, other.second); }))
      throw conflict("Another package has a different file at the path: ", path);
    return first != last;
  }

  const Directory& m_root;
  const Ownership& m_ownership;
  std::set<fs::path> m_made;
  std::set<fs::path> m_found; ///< parents that exist as directories
  ChangePlan m_plan;
};

/// Adds the removal of the installed version's files to `plan`, except those in `kept` and those of other packages.
void planObsoletes(const Directory& root, const Ownership& ownership, const PackagedFiles& kept, std::size_t number,
                   ChangePlan& plan) {
  for (const auto& [path, file] : ownership.earlier) {
    if (kept.contains(path) || ownership.others.contains(path) || Acceptance::isReserved(path))
      continue;
    const std::optional<Entry> entry = entryOf(root, path);
    if (entry && file.type == file_type::directory)
      plan.obsoleteDirectories.push_back(path);
    else if (entry && isFileOrLink(file.type) && isFileOrLink(entry->type))
      plan.changes.push_back(
          {.kind = Change::Kind::Delete, .number = number++, .path = path, .oldInode = entry->inode});
  }
  std::ranges::reverse(plan.obsoleteDirectories);
}

} // namespace

ChangePlan planInstallation(const Directory& root, const PackagedFiles& files, const Ownership& ownership) {
  Installation installation(root, ownership);
  for (const auto& [path, file] : files)
    installation.place(path, file);
  ChangePlan plan = installation.take();
  planObsoletes(root, ownership, files, files.size() + 1, plan);
  return plan;
}

ChangePlan planRemoval(const Directory& root, const Ownership& ownership) {
  ChangePlan plan;
  planObsoletes(root, ownership, {}, 0, plan);
  return plan;
}

} // namespace Sandbox
