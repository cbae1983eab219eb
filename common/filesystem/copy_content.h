// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <filesystem>

namespace Common::Filesystem {

/// Like std::filesystem::copy_file() without options: copies the bytes and the permissions of the regular file `from`,
/// symlinks followed, to the new file `to`. Fails if `to` exists, even as a dangling symlink. Throws filesystem_error
/// with the text of the standard library; a partly written `to` stays.
///
/// Unlike the standard function it lets the file system share the bytes, and it does not stat both paths again. Like
/// the standard function it blocks until a lease on `from` is given up; it never waits for the other end of a FIFO.
/// Returns the open source, so that the caller reads further data (extended attributes) from the same file even if
/// `from` is replaced meanwhile. Only for the sources of this folder.
Posix::FileDescriptor copyContent(const std::filesystem::path& from, const std::filesystem::path& to);

} // namespace Common::Filesystem
