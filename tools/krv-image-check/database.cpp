// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/database.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

namespace ImageCheck {

namespace fs = std::filesystem;

namespace {

using Common::Posix::FileDescriptor;

std::system_error failure(const fs::path& path) {
  return {errno, std::generic_category(), path.string()};
}

void copyFile(const FileDescriptor& from, const fs::path& to) {
  FileDescriptor copy(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!copy)
    throw failure(to);
  constexpr std::size_t most = 1 << 30;
  ssize_t count = 0;
  while ((count = sendfile(copy.get(), from.get(), nullptr, most)) > 0) {
  }
  if (count < 0 || copy.close() != 0)
    throw failure(to);
}

} // namespace

std::string copyDatabase(const ImageTree& tree, const fs::path& destination) {
  fs::create_directory(destination);
  std::string reason = "there is no RPM database in var/lib/rpm or usr/lib/sysimage/rpm";
  for (const fs::path folder : {"var/lib/rpm", "usr/lib/sysimage/rpm"}) {
    if (const FileDescriptor database = tree.openFile(folder / "rpmdb.sqlite")) {
      copyFile(database, destination / "rpmdb.sqlite");
      // Changes that SQLite has not yet moved into the database.
      if (const FileDescriptor log = tree.openFile(folder / "rpmdb.sqlite-wal"))
        copyFile(log, destination / "rpmdb.sqlite-wal");
      return "";
    }
    if (errno != ENOENT && errno != ENOTDIR)
      reason = "the RPM database in " + folder.string() + " cannot be read";
    for (const char* other : {"Packages", "Packages.db"})
      if (tree.status(folder / other))
        reason = "the RPM database in " + folder.string() + " is not in SQLite";
  }
  return reason;
}

} // namespace ImageCheck
