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

/// The tag of the signature header under which the signatures are stored.
inline constexpr std::uint32_t containerTag = 1263687235;

/// Size of the lead, with which every package begins.
inline constexpr off_t leadSize = 96;

/// What librpm reads of a signature header: more entries, or more bytes of data, and it refuses the package
/// (hdrblobRead in its lib/header.c).
inline constexpr std::uint32_t maximalEntries = 32;
inline constexpr std::uint32_t maximalData = 64 * 1024 * 1024;

/// The most bytes of signatures that are read of a package. A few signatures with their chains take some kilobytes;
/// what OpenSSL does with this many bytes, chosen to keep it busy, takes about a second.
inline constexpr std::uint32_t maximalContainer = 256 * 1024;

/// Where the parts of a package lie in its file.
struct PackageParts {
  struct Container {
    off_t offset;
    std::size_t size;
  };
  std::size_t headerSize;             ///< the signature header behind the lead, with its magic, without padding
  off_t contentOffset;                ///< the main header, behind the padding
  std::optional<Container> container; ///< none in a package that was never signed
};

/// Whether the last component of a path may be a symlink. Other components may always be symlinks.
enum class Symlink {
  Followed,
  Refused,
};

/// Opens a regular file for reading, from `directory` as openat(2) does. An empty descriptor otherwise, with the reason
/// in errno (0 for something that is no regular file). Waits for the holder of a lease on the file, as every open does,
/// and never for the other end of a FIFO. Without /proc it fails with EWOULDBLOCK instead of waiting, and what somebody
/// puts in the place of the file just then may be open instead; locateParts() refuses it.
[[nodiscard]] FileDescriptor openRegularFile(int directory, const std::string& path, Symlink symlink);

/// Looks at the lead and the signature header; nothing when the file is not a regular one, is no package, is cut off
/// before the content, or has a container of another type, one that is too large, or two of them.
[[nodiscard]] std::optional<PackageParts> locateParts(int file);

/// True when `bytes` begin with the magic of an RPM header, as the content of a package does. A signature over anything
/// else, above all over what an earlier key says of a later one, must not be made nor accepted as one over a package.
bool beginsAsHeader(std::string_view bytes);

/// The `size` bytes at `offset`, which have to lie inside the file; nothing when they cannot be read.
[[nodiscard]] std::optional<std::string> readRange(int file, off_t offset, std::size_t size);

/// Hands what the file holds from `offset` on to `action`, block by block. False, with errno, when it cannot be read.
[[nodiscard]] bool forEachBlock(int file, off_t offset, const std::function<void(std::string_view)>& action);

} // namespace PackageSignatures
