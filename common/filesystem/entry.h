// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

/// Wraps the standard file-system library with this system's errors. If the library fails, queries write an error line
/// with its reason and return false. Actions write that line and throw Common::Error, Filesystem, with a message that
/// names the paths; they do not undo the steps before the failure.
///
/// Call these functions qualified: argument-dependent lookup also finds the standard ones, so exists(path) is
/// ambiguous.
namespace Common::Filesystem {

/// Symlinks are followed: a dangling symlink does not exist. Also false, after an error line, if stat fails for another
/// reason.
bool exists(const std::filesystem::path& path);
/// Symlinks are followed.
bool isDirectory(const std::filesystem::path& path);
/// Symlinks are followed.
bool isRegularFile(const std::filesystem::path& path);
/// Symlinks are followed.
bool isSocket(const std::filesystem::path& path);
/// The entry itself is checked; a symlink is not followed.
bool isSymlink(const std::filesystem::path& path);

/// Whether `path`, symlinks followed, is a regular file with at least one bit of `mask`. Unlike the other queries it
/// throws if the library fails: "Couldn't get permissions for: " and the path.
bool hasPermissions(const std::filesystem::path& path, std::filesystem::perms mask);

/// Also false if the directory cannot be read. Throws Common::Error, Filesystem, without a log line, if `path`,
/// symlinks followed, is not a directory.
bool isEmptyDirectory(const std::filesystem::path& path);

/// Removes the entry and everything below it. Symlinks are not followed; a missing entry is not an error.
void remove(const std::filesystem::path& path);

/// Creates the directory and its missing parents. An existing directory is not an error.
void createDirectories(const std::filesystem::path& path);

/// Replaces the permission bits. Symlinks are followed.
void setPermissions(const std::filesystem::path& path, std::filesystem::perms permissions);

/// The stored target of a symlink, relative or absolute.
std::filesystem::path readSymlink(const std::filesystem::path& path);

/// Creates the missing parents of `to`, then renames `from` to `to`, which is replaced atomically.
void move(const std::filesystem::path& from, const std::filesystem::path& to);

/// Creates the symlink `link` to `target`, and the missing parents of `link`. Throws without a log line, before any
/// change, if `link` exists.
void createSymlink(const std::filesystem::path& target, const std::filesystem::path& link);

/// Like createSymlink(), but makes `link` a hard link of the file `target`.
void createHardlink(const std::filesystem::path& target, const std::filesystem::path& link);

} // namespace Common::Filesystem
