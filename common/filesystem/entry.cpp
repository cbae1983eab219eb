// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/entry.h"

#include "common/filesystem/failure.h"
#include "common/filesystem/parents.h"

#include <string>

namespace Common::Filesystem {

namespace fs = std::filesystem;

namespace {

template <typename CreateLink>
void createLink(const std::string& message, const fs::path& link, CreateLink create) {
  if (Filesystem::exists(link))
    throw Failure::error(message + " (path already exists)");
  Failure::runOrThrow(message, [&] {
    createParents(link);
    create();
  });
}

} // namespace

bool exists(const fs::path& path) {
  return Failure::runOrReturnFalse([&] { return fs::exists(path); });
}

bool isDirectory(const fs::path& path) {
  return Failure::runOrReturnFalse([&] { return fs::is_directory(path); });
}

bool isRegularFile(const fs::path& path) {
  return Failure::runOrReturnFalse([&] { return fs::is_regular_file(path); });
}

bool isSocket(const fs::path& path) {
  return Failure::runOrReturnFalse([&] { return fs::is_socket(path); });
}

bool isSymlink(const fs::path& path) {
  return Failure::runOrReturnFalse([&] { return fs::is_symlink(path); });
}

bool hasPermissions(const fs::path& path, fs::perms mask) {
  return Failure::runOrThrow("Couldn't get permissions for: " + path.string(), [&] {
    return fs::is_regular_file(path) && (fs::status(path).permissions() & mask) != fs::perms::none;
  });
}

bool isEmptyDirectory(const fs::path& path) {
  if (!isDirectory(path))
    throw Failure::error("Attempt to check if the path is an empty directory, but the path is not a directory");
  return Failure::runOrReturnFalse([&] { return fs::is_empty(path); });
}

void remove(const fs::path& path) {
  Failure::runOrThrow("Couldn't remove filesystem entry: " + path.string(), [&] { fs::remove_all(path); });
}

void createDirectories(const fs::path& path) {
  Failure::runOrThrow("Couldn't create directory: " + path.string(), [&] { fs::create_directories(path); });
}

void setPermissions(const fs::path& path, fs::perms permissions) {
  Failure::runOrThrow("Couldn't set permissions for " + path.string(), [&] { fs::permissions(path, permissions); });
}

fs::path readSymlink(const fs::path& path) {
  return Failure::runOrThrow("Couldn't read symlink: " + path.string(), [&] { return fs::read_symlink(path); });
}

void move(const fs::path& from, const fs::path& to) {
  Failure::runOrThrow("Couldn't move " + from.string() + " to " + to.string(), [&] {
    createParents(to);
    fs::rename(from, to);
  });
}

void createSymlink(const fs::path& target, const fs::path& link) {
  createLink("Couldn't create symlink " + link.string() + " pointing to " + target.string(), link,
             [&] { fs::create_symlink(target, link); });
}

void createHardlink(const fs::path& target, const fs::path& link) {
  createLink("Couldn't create hardlink " + link.string() + " pointing to " + target.string(), link,
             [&] { fs::create_hard_link(target, link); });
}

} // namespace Common::Filesystem
