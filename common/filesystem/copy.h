// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

/// Copying with extended attributes. All errors are Common::Error, Filesystem. A copy that fails half-way takes its
/// destination away again and passes the error on; when that fails too, a warning line says so.
namespace Common::Filesystem {

/// Copies a regular file, links followed, with its permissions and attributes, and makes the missing parents of `to`.
/// An existing `to`, even a dangling link, is an error and stays as it is. Attributes with an empty value are left out,
/// see setXattr().
/// Messages: "Attempt to copy file, but FROM is not regular file"; "Coulnd't copy file FROM to TO", after an error line
/// with the reason and without any cleaning up; those of listXattrs() and setXattr(), after which `to` is removed.
void copyFile(const std::filesystem::path& from, const std::filesystem::path& to);

/// Makes `to` a link with the same text, when the text begins with neither "." nor "/", and makes its missing parents.
/// Of any other link, and when the link cannot be made, the content is copied after a warning: copyFile() of the link's
/// text, which resolves a relative one against the working directory.
/// Messages: "Attempt to copy symlink, but FROM is not symlink"; those of readSymlink() and copyFile().
void copySymlink(const std::filesystem::path& from, const std::filesystem::path& to);

/// Copies the entries of a directory, links followed, into `to`, which is made with its missing parents or was there
/// before. Each entry is copied with copy(). After a failure `to` is removed with all that is in it, also what was
/// there before; only a `to` that holds `from` is left, with the warning of a cleanup that failed.
/// Messages: "Attempt to copy directory, but FROM is not directory"; "Coulnd't copy directory FROM to TO", without a
/// log line, when `to` cannot be made or is `from` or lies below it; those of listDirectory() and copy().
void copyDirectory(const std::filesystem::path& from, const std::filesystem::path& to);

/// Copies a link, a directory or a regular file with the operation above for it. A dangling link does not exist. If
/// something comes to `to` while a regular file is copied, the copy is refused as if it had been there before.
/// Messages: "Couldn't copy FROM to TO (path FROM doesn't exists)"; "Couldn't copy FROM to TO (path already exists)";
/// "Couldn't copy unsupported filesystem entry FROM" for pipes, sockets and devices; those of the operations above.
void copy(const std::filesystem::path& from, const std::filesystem::path& to);

} // namespace Common::Filesystem
