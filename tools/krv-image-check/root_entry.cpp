// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/root_entry.h"

#include "common/rpm/file_entry.h"

namespace ImageCheck {

std::optional<Acceptance::RootEntry> rootEntry(const ImageTree& tree, const std::filesystem::path& path) {
  const auto status = tree.ownStatus(path);
  if (!status)
    return std::nullopt;
  return Acceptance::RootEntry{.type = Common::Rpm::typeOf(static_cast<rpm_mode_t>(status->st_mode)),
                               .permissions = static_cast<std::filesystem::perms>(status->st_mode & 07777),
                               .inode = status->st_ino};
}

} // namespace ImageCheck
