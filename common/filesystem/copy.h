// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

/// Copying with extended attributes. All errors are Common::Error, Filesystem. If a copy fails half-way, it removes its
/// destination and throws the error; if the removal fails too, it logs a warning.
namespace Common::Filesystem {

/// Copies a regular file, symlinks followed, with its permissions and extended attributes, and creates the missing
/// parents of `to`. If `to` exists, even as a dangling symlink, the copy fails and `to` stays unchanged. Attributes
/// with an empty value are not copied, see setXattr().
/// Messages: "Attempt to copy file, but FROM is not regular file"; "Coulnd't copy file FROM to TO", after an error line
/// with the reason, without cleanup; those of listXattrs() and setXattr(), after which `to` is removed.
void copyFile(const std::filesystem::path& from, const std::filesystem::path& to);

/// Creates the symlink `to` with the target of `from`, and the missing parents of `to`, if the target begins with
/// neither "." nor "/". For any other target, and if the symlink cannot be created, logs a warning and copies the
/// content: copyFile() with the target as its source, so a relative target is resolved against the working directory.
/// Messages: "Attempt to copy symlink, but FROM is not symlink"; those of readSymlink() and copyFile().
void copySymlink(const std::filesystem::path& from, const std::filesystem::path& to);

/// Copies the entries of the directory `from`, symlinks followed, into `to` with copy(). Creates `to` and its missing
/// parents; an existing `to` is used. After a failure `to` is removed with its whole content, also the files that were
/// there before. If `to` contains `from`, nothing is removed, and the warning of a failed cleanup is logged.
/// Messages: "Attempt to copy directory, but FROM is not directory"; "Coulnd't copy directory FROM to TO", without a
/// log line, if `to` cannot be created, is `from` or lies below it; those of listDirectory() and copy().
void copyDirectory(const std::filesystem::path& from, const std::filesystem::path& to);

/// Copies a symlink, a directory or a regular file with the matching function above. A dangling symlink `from` counts
/// as missing. If another process creates `to` while a regular file is copied, the copy fails as if `to` had existed
/// before.
/// Messages: "Couldn't copy FROM to TO (path FROM doesn't exists)"; "Couldn't copy FROM to TO (path already exists)";
/// "Couldn't copy unsupported filesystem entry FROM" for FIFOs, sockets and devices; those of the functions above.
void copy(const std::filesystem::path& from, const std::filesystem::path& to);

} // namespace Common::Filesystem
