// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/locations.h"

#include "common/filesystem/failure.h"
#include "common/filesystem/root.h"

#include <boost/filesystem/operations.hpp>

#include <cstdlib>

#include <grp.h>

namespace Common::Filesystem {

namespace fs = std::filesystem;

fs::path homeDirectory() {
  const char* home = std::getenv("HOME");
  if (home == nullptr)
    throw Failure::error("Couldn't locate current user home directory");
  return home;
}

std::vector<fs::path> usersHomeDirectories() {
  const fs::path base = rootDirectory() / "home";
  const group* users = getgrnam("users");
  if (users == nullptr)
    throw Error(make_error_code(ErrorCode::Internal), "Couldn't retrieve information about 'users' group");
  if (users->gr_mem == nullptr)
    throw Error(make_error_code(ErrorCode::Internal), "Couldn't retrieve list of system users");

  std::vector<fs::path> directories;
  for (char** member = users->gr_mem; *member != nullptr; ++member)
    directories.push_back(base / *member);
  return directories;
}

fs::path tempDirectory() {
  return Failure::runOrThrow("Couldn't retrieve temp directory path", [] { return fs::temp_directory_path(); });
}

fs::path uniquePath(const fs::path& model) {
  return boost::filesystem::unique_path(model.native()).native();
}

} // namespace Common::Filesystem
