// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <filesystem>

namespace Common::Filesystem {

/// What std::filesystem::copy_file() does without options: copies the bytes and the permissions of a regular file,
/// links followed, to a path at which nothing may be yet, not even a dangling link. Throws filesystem_error with the
/// same description; what was made until then stays. Unlike the standard one it lets the file system share the bytes
/// and does not ask both paths for their status again. Like the standard one it waits until a lease on the source is
/// given up; it never waits for the other end of a FIFO. Returns the source, still open: what else is copied then comes
/// from the same file, whatever has taken its place. For the sources of this folder only.
Posix::FileDescriptor copyContent(const std::filesystem::path& from, const std::filesystem::path& to);

} // namespace Common::Filesystem
