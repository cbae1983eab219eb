// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/file_list.h"

#include "common/error/error.h"

#include <rpm/rpmstring.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <sys/stat.h>

namespace Common::Rpm {

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
          .type = typeOf(mode),
          .permissions = static_cast<std::filesystem::perms>(mode & 07777),
          .size = rpmfilesFSize(files, index),
          .digest = digestOf(files, index),
          .target = target != nullptr ? target : "",
          .isGhost = (rpmfilesFFlags(files, index) & RPMFILE_GHOST) != 0,
          .isFurtherName = isFurtherName(files, index)};
}

} // namespace

std::filesystem::file_type typeOf(rpm_mode_t mode) {
  using std::filesystem::file_type;
  switch (mode & S_IFMT) {
  case S_IFDIR:
    return file_type::directory;
  case S_IFLNK:
    return file_type::symlink;
  case S_IFREG:
    return file_type::regular;
  case S_IFBLK:
    return file_type::block;
  case S_IFCHR:
    return file_type::character;
  case S_IFIFO:
    return file_type::fifo;
  case S_IFSOCK:
    return file_type::socket;
  default:
    return file_type::unknown;
  }
}

std::string nameBelowRoot(std::string_view name) {
  std::string below;
  while (!name.empty()) {
    const std::string_view part = name.substr(0, name.find('/'));
    name.remove_prefix(std::min(part.size() + 1, name.size()));
    if (part == "..") {
      const auto parent = below.rfind('/');
      below.erase(parent == below.npos ? 0 : parent);
    } else if (!part.empty() && part != ".") {
      if (!below.empty())
        below += '/';
      below += part;
    }
  }
  return below;
}

std::vector<PackagedFile> fileList(const Reader& package) {
  const FileSetHandle files = package.files();
  if (!files)
    throw Error(ErrorCode::BadPackageFileFormat, "Couldn't read the list of files of the package");
  std::vector<PackagedFile> list;
  for (int index = 0; index < static_cast<int>(rpmfilesFC(files.get())); ++index)
    list.push_back(describe(files.get(), index));
  return list;
}

} // namespace Common::Rpm
