// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/handles.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace PackageSignatures {

/// The tag of the signatures in the signature header.
inline constexpr std::uint32_t containerTag = 1263687235;

/// Size of the lead at the beginning of every package.
inline constexpr off_t leadSize = 96;

/// librpm's limits for a signature header: it refuses packages with more entries or more bytes of data (hdrblobRead()
/// in its lib/header.c).
inline constexpr std::uint32_t maximalEntries = 32;
inline constexpr std::uint32_t maximalData = 64 * 1024 * 1024;

/// The limit for the signatures of a package in bytes. A few signatures with their chains take some kilobytes. Content
/// of this size that is crafted to be slow keeps OpenSSL busy for about a second.
inline constexpr std::uint32_t maximalContainer = 256 * 1024;

/// The places of a package's parts in its file.
struct PackageParts {
  struct Container {
    off_t offset;
    std::size_t size;
  };
  std::size_t headerSize;             ///< of the signature header behind the lead, with its magic, without padding
  off_t contentOffset;                ///< of the main header, behind the padding
  std::optional<Container> container; ///< empty if the package was never signed
};

/// Whether the last component of a path may be a symlink. Other components may always be symlinks.
enum class Symlink {
  Followed,
  Refused,
};

/// Opens a regular file for reading; `directory` is used as in openat(2). On failure returns an empty descriptor and
/// sets errno (0 if the file is not a regular file). Blocks while another process has a lease on the file, never for
/// the other end of a FIFO. Without /proc it fails with EWOULDBLOCK instead of blocking, and it may open a file that
/// has just replaced the first one; locateParts() checks the type again.
[[nodiscard]] FileDescriptor openRegularFile(int directory, const std::string& path, Symlink symlink);

/// Parses the lead and the signature header. Returns nothing if the file is not a regular file or not a package, if it
/// ends before the content, or if it has a container of another type, above the limit, or twice.
[[nodiscard]] std::optional<PackageParts> locateParts(int file);

/// Size of the magic of an RPM header.
inline constexpr std::size_t headerMagicSize = 8;

/// True if `bytes` begins with the magic of an RPM header, as the content of a package does. A signature over anything
/// else, above all over the text of a key rotation, must not be made or accepted as the signature of a package.
bool beginsAsHeader(std::string_view bytes);

/// The `size` bytes at `offset`, which must lie inside the file; nothing if they cannot be read.
[[nodiscard]] std::optional<std::string> readRange(int file, off_t offset, std::size_t size);

/// Passes the file from `offset` to its end to `action`, block by block. Returns false and leaves errno if reading
/// fails.
[[nodiscard]] bool forEachBlock(int file, off_t offset, const std::function<void(std::string_view)>& action);

} // namespace PackageSignatures
