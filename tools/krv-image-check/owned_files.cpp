// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/owned_files.h"

namespace ImageCheck {

OwnedFile ownedFile(const std::filesystem::path& path, const Acceptance::PackagedFile& file) {
  return {.path = path,
          .type = file.type,
          .permissions = file.permissions,
          .size = file.size,
          .digest = file.digest,
          .target = file.target,
          .isGhost = file.isGhost};
}

Acceptance::PackagedFiles packagedFiles(const std::vector<OwnedFile>& files) {
  Acceptance::PackagedFiles packaged;
  for (const OwnedFile& file : files)
    packaged.emplace(file.path, Acceptance::PackagedFile{.index = 0,
                                                         .name = "/" + file.path.native(),
                                                         .type = file.type,
                                                         .permissions = file.permissions,
                                                         .size = file.size,
                                                         .digest = file.digest,
                                                         .target = file.target,
                                                         .isGhost = file.isGhost,
                                                         .isFurtherName = false});
  return packaged;
}

} // namespace ImageCheck
