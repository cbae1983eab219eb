// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/directory.h"

#include "common/error/error.h"
#include "driver/log/log_message.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Sandbox {

namespace fs = std::filesystem;
using Common::Posix::FileDescriptor;

namespace {

// O_PATH needs no read permission, and opening has no side effects.
constexpr int directoryFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

/// Call it before errno can change.
Common::Error failure(const std::string& message, const fs::path& path) {
  const std::error_code reason(errno, std::generic_category());
  LogMessage(LogLevel::Error) << reason.message();
  return {Common::ErrorCode::Filesystem, message + path.string()};
}

fs::file_type typeOf(mode_t mode) {
  switch (mode & S_IFMT) {
  case S_IFREG:
    return fs::file_type::regular;
  case S_IFDIR:
    return fs::file_type::directory;
  case S_IFLNK:
    return fs::file_type::symlink;
  default:
    return fs::file_type::unknown;
  }
}

Entry entryOf(const struct stat& status) {
  return {.type = typeOf(status.st_mode),
          .permissions = static_cast<fs::perms>(status.st_mode & ALLPERMS),
          .owner = status.st_uid,
          .inode = status.st_ino};
}

struct CloseListing {
  void operator()(DIR* listing) const { closedir(listing); }
};
using Listing = std::unique_ptr<DIR, CloseListing>;

Listing openListing(int directory, const std::string& name) {
  const int descriptor = openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  return Listing(descriptor < 0 ? nullptr : fdopendir(descriptor));
}

std::vector<std::string> namesIn(DIR* listing) {
  std::vector<std::string> names;
  while (const dirent* const entry = readdir(listing)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..")
      names.push_back(name);
  }
  return names;
}

} // namespace

Directory::Directory(const fs::path& path) : m_descriptor(::open(path.c_str(), directoryFlags)), m_path(path) {
  if (!m_descriptor)
    throw failure("Couldn't open directory: ", path);
}

Directory::Directory(FileDescriptor descriptor, fs::path path)
    : m_descriptor(std::move(descriptor)), m_path(std::move(path)) {}

std::optional<Directory> Directory::step(const std::string& name) const {
  FileDescriptor next(openat(m_descriptor.get(), name.c_str(), directoryFlags | O_NOFOLLOW));
  if (next)
    return Directory(std::move(next), m_path / name);
  if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP)
    return std::nullopt;
  throw failure("Couldn't open directory: ", m_path / name);
}

std::optional<Directory> Directory::find(const fs::path& path) const {
  std::optional<Directory> found = step(".");
  for (const fs::path& part : path) {
    // Plans have no such path, but a manipulated journal could.
    if (part == ".." || part.is_absolute())
      return std::nullopt;
    found = found->step(part);
    if (!found)
      return std::nullopt;
  }
  if (found)
    found->m_path = m_path / path;
  return found;
}

Directory Directory::open(const fs::path& path) const {
  if (std::optional<Directory> found = find(path))
    return std::move(*found);
  throw failure("Couldn't open directory: ", m_path / path);
}

void Directory::makeFor(const std::string& name, mode_t mode) const {
  if (mkdirat(m_descriptor.get(), name.c_str(), mode) != 0 && errno != EEXIST)
    throw failure("Couldn't create directory: ", m_path / name);
}

Directory Directory::openPrivate(const fs::path& path) const {
  constexpr mode_t forEverybodyToRead = 0755;
  fs::path parent;
  for (const fs::path& part : path.parent_path()) {
    if (const auto above = find(parent))
      above->makeFor(part, forEverybodyToRead);
    parent /= part;
  }
  if (const auto above = find(parent))
    above->makeDirectory(path.filename());
  std::optional<Directory> found = find(path);
  if (!found)
    throw failure("Couldn't create directory: ", m_path / path);
  found->setPermissions(fs::perms::owner_all);
  return std::move(*found);
}

bool Directory::makeDirectory(const std::string& name) const {
  if (mkdirat(m_descriptor.get(), name.c_str(), S_IRWXU) != 0) {
    if (errno == EEXIST)
      return false;
    throw failure("Couldn't create directory: ", m_path / name);
  }
  // The umask may have cleared bits that the owner needs.
  if (const std::optional<Directory> made = step(name))
    made->setPermissions(fs::perms::owner_all);
  return true;
}

Entry Directory::status() const {
  struct stat status {};
  if (fstat(m_descriptor.get(), &status) != 0)
    throw failure("Couldn't get the type of: ", m_path);
  return entryOf(status);
}

std::optional<Entry> Directory::entry(const std::string& name) const {
  struct stat status {};
  if (fstatat(m_descriptor.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return entryOf(status);
  if (errno == ENOENT)
    return std::nullopt;
  throw failure("Couldn't get the type of: ", m_path / name);
}

FileDescriptor Directory::createFile(const std::string& name) const {
  constexpr mode_t forTheOwner = S_IRUSR | S_IWUSR;
  FileDescriptor file(
      openat(m_descriptor.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, forTheOwner));
  if (!file || fchmod(file.get(), forTheOwner) != 0)
    throw failure("Couldn't create file: ", m_path / name);
  return file;
}

std::optional<FileDescriptor> Directory::openFile(const std::string& name) const {
  FileDescriptor file(openat(m_descriptor.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (file)
    return file;
  if (errno == ENOENT)
    return std::nullopt;
  throw failure("Couldn't open file: ", m_path / name);
}

void Directory::createSymlink(const std::string& target, const std::string& name) const {
  if (symlinkat(target.c_str(), m_descriptor.get(), name.c_str()) != 0)
    throw failure("Couldn't create symlink: ", m_path / name);
}

void Directory::createHardLink(const std::string& existing, const Directory& to, const std::string& name) const {
  if (linkat(m_descriptor.get(), existing.c_str(), to.m_descriptor.get(), name.c_str(), 0) != 0)
    throw failure("Couldn't create hard link: ", to.m_path / name);
}

void Directory::rename(const std::string& name, const Directory& to, const std::string& newName) const {
  if (renameat(m_descriptor.get(), name.c_str(), to.m_descriptor.get(), newName.c_str()) != 0)
    throw failure("Couldn't rename: ", m_path / name);
}

bool Directory::move(const std::string& name, const Directory& to, const std::string& newName) const {
  if (renameat2(m_descriptor.get(), name.c_str(), to.m_descriptor.get(), newName.c_str(), RENAME_NOREPLACE) == 0)
    return true;
  if (errno == ENOENT || errno == EEXIST)
    return false;
  throw failure("Couldn't move: ", m_path / name);
}

bool Directory::exchange(const std::string& name, const Directory& other, const std::string& otherName) const {
  if (renameat2(m_descriptor.get(), name.c_str(), other.m_descriptor.get(), otherName.c_str(), RENAME_EXCHANGE) == 0)
    return true;
  if (errno == ENOENT)
    return false;
  throw failure("Couldn't exchange: ", m_path / name);
}

void Directory::removeIfEmpty(const std::string& name) const {
  if (unlinkat(m_descriptor.get(), name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOTEMPTY && errno != EEXIST &&
      errno != ENOENT && errno != ENOTDIR)
    throw failure("Couldn't remove directory: ", m_path / name);
}

void Directory::remove(const std::string& name) const {
  if (unlinkat(m_descriptor.get(), name.c_str(), 0) == 0 || errno == ENOENT)
    return;
  if (errno != EISDIR)
    throw failure("Couldn't remove: ", m_path / name);
  const Listing listing = openListing(m_descriptor.get(), name);
  if (!listing)
    throw failure("Couldn't remove: ", m_path / name);
  const Directory directory(FileDescriptor(fcntl(dirfd(listing.get()), F_DUPFD_CLOEXEC, 0)), m_path / name);
  for (const std::string& below : namesIn(listing.get()))
    directory.remove(below);
  if (unlinkat(m_descriptor.get(), name.c_str(), AT_REMOVEDIR) != 0)
    throw failure("Couldn't remove: ", m_path / name);
}

void Directory::setPermissions(fs::perms permissions) const {
  // fchmod(2) refuses O_PATH descriptors. The path in /proc leads to the open directory itself.
  if (chmod(pathOf(m_descriptor).c_str(), static_cast<mode_t>(permissions)) != 0)
    throw failure("Couldn't set permissions: ", m_path);
}

std::optional<Place> findPlace(const Directory& root, const fs::path& path) {
  std::optional<Directory> directory = root.find(path.parent_path());
  if (!directory)
    return std::nullopt;
  return Place{.directory = std::move(*directory), .name = path.filename()};
}

fs::path pathOf(const FileDescriptor& descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor.get());
}

} // namespace Sandbox
