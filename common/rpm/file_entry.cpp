// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/file_entry.h"

#include <algorithm>

#include <sys/stat.h>

namespace Common::Rpm {

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

} // namespace Common::Rpm
