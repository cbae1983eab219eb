// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/image_tree.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ImageCheck {

using Common::Posix::FileDescriptor;

namespace {

std::system_error failure(const std::string& what) {
  return {errno, std::generic_category(), what};
}

FileDescriptor openBelow(int root, const std::filesystem::path& path, int flags, std::uint64_t resolve) {
  open_how how{};
  how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
  how.resolve = resolve;
  const std::string below = path.has_relative_path() ? path.relative_path().string() : ".";
  return FileDescriptor(static_cast<int>(syscall(SYS_openat2, root, below.c_str(), &how, sizeof how)));
}

} // namespace

ImageTree::ImageTree(const std::string& root) : m_root(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (!m_root || fstat(m_root.get(), &m_status) != 0)
    throw failure(root);
  // An old kernel has no such call, and a sandbox may forbid it.
  if (!find("") && (errno == ENOSYS || errno == EPERM))
    throw failure("The kernel cannot resolve paths inside the image (openat2)");
}

FileDescriptor ImageTree::find(const std::filesystem::path& path) const {
  return openBelow(m_root.get(), path, O_PATH, RESOLVE_IN_ROOT);
}

std::optional<struct stat> ImageTree::status(const std::filesystem::path& path) const {
  struct stat status {};
  const FileDescriptor found = find(path);
  return found && fstat(found.get(), &status) == 0 ? std::optional(status) : std::nullopt;
}

std::optional<struct stat> ImageTree::ownStatus(const std::filesystem::path& path) const {
  struct stat status {};
  const FileDescriptor parent =
      openBelow(m_root.get(), path.parent_path(), O_PATH | O_DIRECTORY, RESOLVE_IN_ROOT | RESOLVE_NO_SYMLINKS);
  return parent && fstatat(parent.get(), path.filename().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0
             ? std::optional(status)
             : std::nullopt;
}

FileDescriptor ImageTree::openDirectory(const std::filesystem::path& path) const {
  return openBelow(m_root.get(), path, O_RDONLY | O_DIRECTORY, RESOLVE_IN_ROOT);
}

FileDescriptor ImageTree::openFile(const std::filesystem::path& path) const {
  const FileDescriptor found = find(path);
  return found ? openForReading(found) : FileDescriptor();
}

std::optional<std::string> ImageTree::read(const std::filesystem::path& path, std::size_t limit) const {
  const FileDescriptor file = openFile(path);
  return file ? contentOf(file, limit) : std::nullopt;
}

std::vector<std::string> ImageTree::list(const std::filesystem::path& path) const {
  const FileDescriptor directory = openDirectory(path);
  return directory ? namesIn(directory) : std::vector<std::string>();
}

FileDescriptor openForReading(const FileDescriptor& found) {
  struct stat status {};
  if (fstat(found.get(), &status) != 0)
    return FileDescriptor();
  if (!S_ISREG(status.st_mode)) {
    errno = ENOTSUP;
    return FileDescriptor();
  }
  return FileDescriptor(open(pathOf(found).c_str(), O_RDONLY | O_CLOEXEC));
}

std::vector<std::string> namesIn(const FileDescriptor& directory) {
  // The stream closes its descriptor.
  const int copy = openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(copy < 0 ? nullptr : fdopendir(copy), &closedir);
  if (!stream)
    throw failure("a directory cannot be read");
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..")
      names.push_back(name);
    errno = 0;
  }
  if (errno != 0)
    throw failure("a directory cannot be read");
  std::ranges::sort(names);
  return names;
}

std::optional<std::string> contentOf(const FileDescriptor& file, std::size_t limit) {
  std::string content;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count =
        TEMP_FAILURE_RETRY(pread(file.get(), buffer.data(), buffer.size(), static_cast<off_t>(content.size())));
    if (count == 0)
      return content;
    if (count < 0 || content.size() + static_cast<std::size_t>(count) > limit)
      return std::nullopt;
    content.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

std::string pathOf(const FileDescriptor& file) {
  return "/proc/self/fd/" + std::to_string(file.get());
}

} // namespace ImageCheck
