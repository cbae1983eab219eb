// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/planning.h"

#include <optional>

namespace Sandbox {

namespace {

Acceptance::Root entriesOf(const Directory& root) {
  return [&root](const std::filesystem::path& path) -> std::optional<Acceptance::RootEntry> {
    const std::optional<Place> place = findPlace(root, path);
    const std::optional<Entry> entry = place ? place->entry() : std::nullopt;
    if (!entry)
      return std::nullopt;
    return Acceptance::RootEntry{.type = entry->type, .permissions = entry->permissions, .inode = entry->inode};
  };
}

} // namespace

ChangePlan planInstallation(const Directory& root, const Acceptance::PackagedFiles& files,
                            const Acceptance::Ownership& ownership) {
  return {Acceptance::placeFiles(entriesOf(root), files, ownership)};
}

ChangePlan planRemoval(const Directory& root, const Acceptance::Ownership& ownership) {
  return {Acceptance::removeFiles(entriesOf(root), ownership)};
}

} // namespace Sandbox
