// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

/// The standard file-system library with this system's errors. Queries answer false when the library fails, after an
/// error line with its reason. Actions write that line and throw Common::Error, Filesystem, with a message that names
/// the paths; nothing that an action has done before it failed is undone.
///
/// Call these qualified: an unqualified exists(path) is ambiguous with the standard one, which argument-dependent
/// lookup finds.
namespace Common::Filesystem {

/// Links are followed: a dangling link does not exist. Nor does, as far as one can tell, what cannot be asked about.
bool exists(const std::filesystem::path& path);
/// Links are followed.
bool isDirectory(const std::filesystem::path& path);
/// Links are followed.
bool isRegularFile(const std::filesystem::path& path);
/// Links are followed.
bool isSocket(const std::filesystem::path& path);
/// The entry itself is asked, a link is not followed.
bool isSymlink(const std::filesystem::path& path);

/// Whether `path`, links followed, is a regular file with at least one bit of `mask`. Unlike the other queries it
/// throws when the library fails: "Couldn't get permissions for: " and the path.
bool hasPermissions(const std::filesystem::path& path, std::filesystem::perms mask);

/// False also when the directory cannot be read. Throws Common::Error, Filesystem, without a line of its own, when
/// `path`, links followed, is no directory.
bool isEmptyDirectory(const std::filesystem::path& path);

/// Removes the entry and everything below it. Links are not followed; a missing entry is no error.
void remove(const std::filesystem::path& path);

/// Makes the directory and its missing parents. An existing directory is no error.
void createDirectories(const std::filesystem::path& path);

/// Replaces the permission bits. Links are followed.
void setPermissions(const std::filesystem::path& path, std::filesystem::perms permissions);

/// The target of a link as it is written there, relative or not.
std::filesystem::path readSymlink(const std::filesystem::path& path);

/// Renames `from` to `to`, which is replaced atomically, and makes the missing parents of `to` first.
void move(const std::filesystem::path& from, const std::filesystem::path& to);

/// Makes `link`, and its missing parents, with the text `target`. An existing `link` is refused before anything is
/// done, without a log line.
void createSymlink(const std::filesystem::path& target, const std::filesystem::path& link);

/// Like createSymlink(), but `link` becomes a further name of the file `target`.
void createHardlink(const std::filesystem::path& target, const std::filesystem::path& link);

} // namespace Common::Filesystem
