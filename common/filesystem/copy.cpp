// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/copy.h"

#include "common/filesystem/content.h"
#include "common/filesystem/entry.h"
#include "common/filesystem/failure.h"
#include "common/filesystem/listing.h"
#include "common/filesystem/parents.h"
#include "common/filesystem/xattr.h"

#include <string>

namespace Common::Filesystem {

namespace fs = std::filesystem;

namespace {

/// Whether `path`, which need not exist, is `directory` or lies below it, however the two are written. The system's
/// own identities are compared and not names, which links and mounts make ambiguous.
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

void copyXattrs(const fs::path& from, const fs::path& to) {
  for (const auto& [name, value] : listXattrs(from))
    setXattr(to, name, value);
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
    LogMessage(LogLevel::Warning) << "Coulnd't copy symlink " << from << " to " << to;
    return false;
  }
}

void makeDestination(const fs::path& from, const fs::path& to) {
  try {
    // A directory copied into itself would find its own copy among its entries, without end.
    if (!liesWithin(to, from)) {
      fs::create_directories(to);
      return;
    }
  } catch (const std::exception&) {
    // What follows is all that is said about it.
  }
  throw Failure::error("Coulnd't copy directory " + from.string() + " to " + to.string());
}

void removeFailedFile(const fs::path& to) {
  try {
    Filesystem::remove(to);
  } catch (const Error&) {
    LogMessage(LogLevel::Warning) << "Couldn't cleanup bad copied file: " << to;
  }
}

/// The type of the entry itself, or none when it does not exist, which a dangling link does not either.
fs::file_type typeOf(const fs::path& path) {
  fs::file_type type = fs::file_type::none;
  const bool exists = Failure::answering([&] {
    const fs::file_status status = fs::symlink_status(path);
    type = status.type();
    return type == fs::file_type::symlink ? fs::exists(path) : fs::exists(status);
  });
  return exists ? type : fs::file_type::none;
}

/// Whether the directory of a destination may be missing. Asking takes a twentieth of the time of a small file.
enum class Parents { MayBeMissing, AreThere };

void copyRegularFile(const fs::path& from, const fs::path& to, Parents parents) {
  Failure::throwing("Coulnd't copy file " + from.string() + " to " + to.string(), [&] {
    if (parents == Parents::MayBeMissing)
      createParents(to);
    copyContent(from, to);
  });
  try {
    copyXattrs(from, to);
  } catch (...) {
    removeFailedFile(to);
    throw;
  }
}

void removeFailedDirectory(const fs::path& from, const fs::path& to) {
  try {
    // A destination that was there before may hold the source, which is not this copy's to remove.
    if (liesWithin(from, to))
      throw Failure::error("the source lies in the destination");
    Filesystem::remove(to);
  } catch (const std::exception&) {
    LogMessage(LogLevel::Warning) << "Couldn't cleanup bad copied directory: " << to;
  }
}

void copyEntry(const fs::path& from, const fs::path& to, Parents parents) {
  const fs::file_type type = typeOf(from);
  const std::string message = "Couldn't copy " + from.string() + " to " + to.string();
  if (type == fs::file_type::none)
    throw Failure::error(message + " (path " + from.string() + " doesn't exists)");
  if (Filesystem::exists(to))
    throw Failure::error(message + " (path already exists)");
  switch (type) {
  case fs::file_type::symlink:
    return copySymlink(from, to);
  case fs::file_type::directory:
    return copyDirectory(from, to);
  case fs::file_type::regular:
    return copyRegularFile(from, to, parents);
  default:
    throw Failure::error("Couldn't copy unsupported filesystem entry " + from.string());
  }
}

} // namespace

void copyFile(const fs::path& from, const fs::path& to) {
  if (!Filesystem::isRegularFile(from))
    throw Failure::error("Attempt to copy file, but " + from.string() + " is not regular file");
  copyRegularFile(from, to, Parents::MayBeMissing);
}

void copySymlink(const fs::path& from, const fs::path& to) {
  if (!Filesystem::isSymlink(from))
    throw Failure::error("Attempt to copy symlink, but " + from.string() + " is not symlink");
  const fs::path target = Filesystem::readSymlink(from);
  if (!isInTheSameDirectory(target))
    LogMessage(LogLevel::Warning) << "Symlink target is not in the same directory: " << from << " -> " << to;
  else if (recreateSymlink(target, from, to))
    return;
  LogMessage(LogLevel::Info) << "Trying to copy content of the symlink target";
  copyFile(target, to);
}

void copyDirectory(const fs::path& from, const fs::path& to) {
  if (!Filesystem::isDirectory(from))
    throw Failure::error("Attempt to copy directory, but " + from.string() + " is not directory");
  makeDestination(from, to);
  try {
    for (const fs::path& entry : listDirectory(from, ListOptions::None))
      copyEntry(entry, to / entry.filename(), Parents::AreThere);
  } catch (...) {
    removeFailedDirectory(from, to);
    throw;
  }
}

void copy(const fs::path& from, const fs::path& to) {
  copyEntry(from, to, Parents::MayBeMissing);
}

} // namespace Common::Filesystem
