// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/file_list.h"

#include "common/error/error.h"
#include "common/rpm/file_entry.h"
#include "common/rpm/handles.h"

#include <rpm/rpmstring.h>

#include <cstdlib>
#include <memory>

namespace Acceptance {

namespace {

std::string owned(char* text) {
  const std::unique_ptr<char, decltype(&std::free)> release(text, &std::free);
  return text != nullptr ? text : "";
}

std::string digestOf(rpmfiles files, int index) {
  size_t size = 0;
  const unsigned char* digest = rpmfilesFDigest(files, index, nullptr, &size);
  return digest != nullptr ? owned(rpmhex(digest, size)) : "";
}

bool isFurtherName(rpmfiles files, int index) {
  const int* names = nullptr;
  return rpmfilesFLinks(files, index, &names) > 1 && names[0] != index;
}

PackagedFile describe(rpmfiles files, int index) {
  const rpm_mode_t mode = rpmfilesFMode(files, index);
  const char* target = rpmfilesFLink(files, index);
  return {.index = index,
          .name = owned(rpmfilesFN(files, index)),
          .type = Common::Rpm::typeOf(mode),
          .permissions = static_cast<std::filesystem::perms>(mode & 07777),
          .size = rpmfilesFSize(files, index),
          .digest = digestOf(files, index),
          .target = target != nullptr ? target : "",
          .isGhost = (rpmfilesFFlags(files, index) & RPMFILE_GHOST) != 0,
          .isFurtherName = isFurtherName(files, index)};
}

} // namespace

std::vector<PackagedFile> fileList(const Common::Rpm::Reader& package) {
  const Common::Rpm::FileSetHandle files = package.files();
  if (!files)
    throw Common::Error(Common::ErrorCode::BadPackageFileFormat, "Couldn't read the list of files of the package");
  std::vector<PackagedFile> list;
  for (int index = 0; index < static_cast<int>(rpmfilesFC(files.get())); ++index)
    list.push_back(describe(files.get(), index));
  return list;
}

} // namespace Acceptance
