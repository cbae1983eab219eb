// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/copy.h"

#include "common/filesystem/copy_content.h"
#include "common/filesystem/entry.h"
#include "common/filesystem/failure.h"
#include "common/filesystem/listing.h"
#include "common/filesystem/parents.h"
#include "common/filesystem/xattr.h"

#include <string>

namespace Common::Filesystem {

namespace fs = std::filesystem;

namespace {

constexpr const char* pathExists = "path already exists";

/// Whether `path`, which need not exist, is `directory` or lies below it. Compares device and inode numbers, because
/// symlinks and mounts give one directory several names.
bool liesWithin(const fs::path& path, const fs::path& directory) {
  fs::path ancestor = fs::weakly_canonical(fs::absolute(path));
  while (true) {
    std::error_code missing;
    if (fs::equivalent(ancestor, directory, missing))
      return true;
    if (!ancestor.has_relative_path())
      return false;
    ancestor = ancestor.parent_path();
  }
}

bool isInTheSameDirectory(const fs::path& target) {
  const std::string& text = target.native();
  return !text.empty() && text.front() != '.' && text.front() != '/';
}

bool recreateSymlink(const fs::path& target, const fs::path& from, const fs::path& to) {
  try {
    createParents(to);
    fs::create_symlink(target, to);
    return true;
  } catch (const std::exception&) {
    logLine<Message::SymlinkNotCopied>(from, to);
    return false;
  }
}

/// What the caller knows about the destination of a copy.
enum class Destination {
  Anywhere,           ///< nothing; if `to` exists, copying a file fails
  Entry,              ///< `to` did not exist; if it exists now, the error is "path already exists"
  EntryOfNewDirectory ///< this copy has created the directory, so `to` is not looked up, which makes small files a
                      ///< tenth faster; another process, or a file system that ignores case, can still fill it
};

/// Creates the directory `to`, and returns what is known about its entries.
Destination makeDestination(const fs::path& from, const fs::path& to) {
  try {
    // A directory copied into itself would copy its own copy, without end.
    if (!liesWithin(to, from))
      return fs::create_directories(to) ? Destination::EntryOfNewDirectory : Destination::Entry;
  } catch (const std::exception&) {
    // The error below is the whole report.
  }
  throw Failure::error("Coulnd't copy directory " + from.string() + " to " + to.string());
}

void removeFailedFile(const fs::path& to) {
  try {
    Filesystem::remove(to);
  } catch (const Error&) {
    logLine<Message::FileNotCleanedUp>(to);
  }
}

/// The type of the entry itself; `none` if it does not exist or is a dangling symlink.
fs::file_type typeOf(const fs::path& path) {
  fs::file_type type = fs::file_type::none;
  const bool exists = Failure::runOrReturnFalse([&] {
    const fs::file_status status = fs::symlink_status(path);
    type = status.type();
    return type == fs::file_type::symlink ? fs::exists(path) : fs::exists(status);
  });
  return exists ? type : fs::file_type::none;
}

Error refusal(const fs::path& from, const fs::path& to, const std::string& reason) {
  return Failure::error("Couldn't copy " + from.string() + " to " + to.string() + " (" + reason + ")");
}

/// Creates the file `to` with the content of `from`, and returns `from`, open. Returns no descriptor, without a log
/// line, if `to` was free before and exists now.
Posix::FileDescriptor makeFile(const fs::path& from, const fs::path& to, Destination destination) {
  return Failure::runOrThrow("Coulnd't copy file " + from.string() + " to " + to.string(), [&] {
    if (destination != Destination::EntryOfNewDirectory)
      createParents(to);
    try {
      return copyContent(from, to);
    } catch (const fs::filesystem_error& error) {
      std::error_code ignored; // a dangling symlink does not exist; copyContent()'s error stands
      const bool isInTheWay = error.code() == std::errc::file_exists && fs::exists(to, ignored);
      if (destination == Destination::Anywhere || !isInTheWay)
        throw;
      return Posix::FileDescriptor();
    }
  });
}

void copyRegularFile(const fs::path& from, const fs::path& to, Destination destination) {
  const Posix::FileDescriptor source = makeFile(from, to, destination);
  if (!source)
    throw refusal(from, to, pathExists);
  try {
    for (const auto& [name, value] : listXattrs(source.get(), from))
      setXattr(to, name, value);
  } catch (...) {
    removeFailedFile(to);
    throw;
  }
}

void removeFailedDirectory(const fs::path& from, const fs::path& to) {
  try {
    // An existing destination may contain the source, which this copy must not remove.
    if (liesWithin(from, to))
      throw Failure::error("the source lies in the destination");
    Filesystem::remove(to);
  } catch (const std::exception&) {
    logLine<Message::DirectoryNotCleanedUp>(to);
  }
}

void copyEntry(const fs::path& from, const fs::path& to, Destination destination) {
  const fs::file_type type = typeOf(from);
  if (type == fs::file_type::none)
    throw refusal(from, to, "path " + from.string() + " doesn't exists");
  // Creating a file fails if `to` exists; creating a directory would use it.
  const bool isNew = type == fs::file_type::regular && destination == Destination::EntryOfNewDirectory;
  if (!isNew && Filesystem::exists(to))
    throw refusal(from, to, pathExists);
  switch (type) {
  case fs::file_type::symlink:
    return copySymlink(from, to);
  case fs::file_type::directory:
    return copyDirectory(from, to);
  case fs::file_type::regular:
    return copyRegularFile(from, to, destination);
  default:
    throw Failure::error("Couldn't copy unsupported filesystem entry " + from.string());
  }
}

} // namespace

void copyFile(const fs::path& from, const fs::path& to) {
  if (!Filesystem::isRegularFile(from))
    throw Failure::error("Attempt to copy file, but " + from.string() + " is not regular file");
  copyRegularFile(from, to, Destination::Anywhere);
}

void copySymlink(const fs::path& from, const fs::path& to) {
  if (!Filesystem::isSymlink(from))
    throw Failure::error("Attempt to copy symlink, but " + from.string() + " is not symlink");
  const fs::path target = Filesystem::readSymlink(from);
  if (!isInTheSameDirectory(target))
    logLine<Message::SymlinkLeavesDirectory>(from, to);
  else if (recreateSymlink(target, from, to))
    return;
  logLine<Message::CopiesSymlinkTarget>();
  copyFile(target, to);
}

void copyDirectory(const fs::path& from, const fs::path& to) {
  if (!Filesystem::isDirectory(from))
    throw Failure::error("Attempt to copy directory, but " + from.string() + " is not directory");
  const Destination destination = makeDestination(from, to);
  try {
    for (const fs::path& entry : listDirectory(from, ListOptions::None))
      copyEntry(entry, to / entry.filename(), destination);
  } catch (...) {
    removeFailedDirectory(from, to);
    throw;
  }
}

void copy(const fs::path& from, const fs::path& to) {
  copyEntry(from, to, Destination::Entry);
}

} // namespace Common::Filesystem
