// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/entry_checks.h"

#include "common/text/printable.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/image_checks.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <functional>

#include <fcntl.h>
#include <unistd.h>

namespace ImageCheck {

namespace fs = std::filesystem;

namespace {

using Common::Posix::FileDescriptor;

Finding finding(const char* id, const std::string& entry, const std::string& message) {
  return {.id = id, .entry = entry, .message = message};
}

std::string typeName(mode_t mode) {
  switch (mode & S_IFMT) {
  case S_IFDIR:
    return "a directory";
  case S_IFIFO:
    return "a FIFO";
  case S_IFSOCK:
    return "a socket";
  case S_IFCHR:
  case S_IFBLK:
    return "a device";
  default:
    return "no regular file";
  }
}

/// Whether a symlink of the pre-install directory leads above the root, or gives a path of the whole system.
bool leadsOut(const fs::path& target) {
  return target.is_absolute() || (fs::path(preInstallDirectory) / target).lexically_normal().string().starts_with("..");
}

/// Returns the target of the symlink `name`, or no value if the entry is not a symlink.
std::optional<std::string> linkTarget(const ImageTree& image, const std::string& name) {
  const FileDescriptor directory = image.openDirectory(preInstallDirectory);
  std::array<char, PATH_MAX> target;
  const ssize_t size = readlinkat(directory.get(), name.c_str(), target.data(), target.size());
  return size < 0 ? std::nullopt : std::optional(std::string(target.data(), static_cast<std::size_t>(size)));
}

OpenedEntry missing(const ImageTree& image, const std::string& name, int error) {
  const std::optional<std::string> target = linkTarget(image, name);
  const bool isAbsent = error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
  OpenedEntry entry;
  if (!target || !isAbsent) {
    entry.findings.push_back(
        finding("check-skipped", name, std::string("this process cannot open it: ") + std::strerror(error)));
    return entry;
  }
  entry.breaksListing = true;
  if (leadsOut(*target))
    entry.findings.push_back(
        finding("entry-link-leaves-image", name, "its target " + Common::printable(*target) + " is not in the image"));
  else
    entry.findings.push_back(
        finding("entry-dangling-link", name, "its target " + Common::printable(*target) + " does not exist"));
  return entry;
}

bool beginsLikePackage(const FileDescriptor& file) {
  std::array<char, 4> magic{};
  return file && pread(file.get(), magic.data(), magic.size(), 0) == ssize_t{magic.size()} &&
         std::memcmp(magic.data(), "\xed\xab\xee\xdb", magic.size()) == 0;
}

/// Calls `visitor` with each package below `directory`. Follows no symlink, and goes only so deep.
void forEachPackageBelow(const FileDescriptor& directory, const std::string& name, int depth,
                         const std::function<void(const std::string&)>& visitor) {
  for (const std::string& part : namesIn(directory)) {
    const std::string path = name + "/" + part;
    const FileDescriptor found(openat(directory.get(), part.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!found || fstat(found.get(), &status) != 0)
      continue;
    if (S_ISREG(status.st_mode) && beginsLikePackage(openForReading(found)))
      visitor(path);
    const FileDescriptor below(
        S_ISDIR(status.st_mode) && depth > 0 ? openat(found.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
    if (below)
      forEachPackageBelow(below, path, depth - 1, visitor);
  }
}

Findings checkFolder(const ImageTree& image, const std::string& name) {
  constexpr int deepest = 32;
  Findings findings;
  const FileDescriptor folder = image.openDirectory(fs::path(preInstallDirectory) / name);
  if (folder)
    forEachPackageBelow(folder, name, deepest, [&](const std::string& path) {
      findings.push_back(
          finding("package-in-subfolder", path, "the package lies in the subfolder " + Common::printable(name)));
    });
  if (findings.empty())
    findings.push_back(finding("entry-not-a-file", name, "the entry is a directory"));
  return findings;
}

/// Whether root without capabilities may read a file.
bool mayBeRead(const struct stat& status, const struct stat& root) {
  if (status.st_uid == root.st_uid)
    return (status.st_mode & S_IRUSR) != 0;
  return (status.st_mode & (status.st_gid == root.st_gid ? S_IRGRP : S_IROTH)) != 0;
}

std::string modeText(const struct stat& status) {
  constexpr std::string_view digits = "01234567";
  std::string text = "0";
  for (const unsigned shift : {6U, 3U, 0U})
    text += digits[status.st_mode >> shift & 7];
  return text;
}

/// The owner of the image's root stands for root: an ordinary user may have made the tree.
Findings checkAccess(const std::string& name, const struct stat& status, const struct stat& root) {
  const std::string owner = "user " + std::to_string(status.st_uid);
  const bool isForeign = status.st_uid != root.st_uid;
  const bool isGroupOfOthers = status.st_gid != root.st_gid;
  if (!mayBeRead(status, root))
    return {finding("entry-unreadable", name,
                    (isForeign ? "it belongs to " + owner + " and has" : "it has") + " mode " + modeText(status))};
  if ((status.st_mode & S_IWOTH) != 0 || (isGroupOfOthers && (status.st_mode & S_IWGRP) != 0))
    return {finding("entry-writable-by-others", name, "it has mode " + modeText(status))};
  if (isForeign)
    return {finding("entry-owner", name, "it belongs to " + owner)};
  return {};
}

} // namespace

OpenedEntry openEntry(const ImageTree& image, const std::string& name) {
  const FileDescriptor found = image.find(fs::path(preInstallDirectory) / name);
  struct stat status {};
  if (!found || fstat(found.get(), &status) != 0)
    return missing(image, name, errno);
  OpenedEntry entry;
  if (S_ISDIR(status.st_mode)) {
    entry.findings = checkFolder(image, name);
    return entry;
  }
  if (!S_ISREG(status.st_mode)) {
    entry.findings.push_back(finding("entry-not-a-file", name, "the entry is " + typeName(status.st_mode)));
    return entry;
  }
  entry.findings = checkAccess(name, status, image.rootStatus());
  if (!isPrintable(name))
    entry.findings.push_back(finding("entry-name-unprintable", name, "its name is " + Common::printable(name)));
  // On the device the file is as unreadable as if it were not there.
  if (!mayBeRead(status, image.rootStatus()))
    return entry;
  entry.file = openForReading(found);
  if (!entry.file)
    entry.findings.push_back(
        finding("check-skipped", name, std::string("this process cannot open it: ") + std::strerror(errno)));
  return entry;
}

} // namespace ImageCheck
