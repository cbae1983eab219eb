// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/package_file.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace PackageSignatures {

namespace {

constexpr std::string_view leadMagic = "\xed\xab\xee\xdb";
constexpr std::string_view headerMagic{"\x8e\xad\xe8\x01\0\0\0\0", headerMagicSize};
constexpr std::size_t introSize = 16; ///< magic, number of entries, size of the data
constexpr std::size_t entrySize = 16; ///< tag, type, offset, count
constexpr std::uint32_t binaryType = 7;

std::uint32_t number(std::string_view bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (const char byte : bytes.substr(offset, 4))
    value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

/// The checks of the lead that librpm makes first.
bool isLead(std::string_view lead) {
  const auto major = lead[4];
  const std::string_view signatureType = lead.substr(78, 2);
  return lead.starts_with(leadMagic) && (major == 3 || major == 4) && signatureType == std::string_view("\0\5", 2);
}

/// Reads at `offset` until `bytes` is full or the file ends. Returns the number of bytes; nothing after an error.
std::optional<std::size_t> fill(int file, off_t offset, std::span<char> bytes) {
  std::size_t done = 0;
  ssize_t count = 1;
  while (done < bytes.size() && count > 0) {
    const std::span<char> rest = bytes.subspan(done);
    count = TEMP_FAILURE_RETRY(pread(file, rest.data(), rest.size(), offset + static_cast<off_t>(done)));
    if (count < 0)
      return std::nullopt;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

/// Looks for the container in the entries of the header. Returns false if it is malformed.
bool findContainer(std::string_view entries, std::uint32_t dataSize, PackageParts& parts) {
  const auto dataOffset = static_cast<off_t>(leadSize + introSize + entries.size());
  for (; !entries.empty(); entries.remove_prefix(entrySize)) {
    if (number(entries, 0) != containerTag)
      continue;
    const std::uint32_t type = number(entries, 4);
    const std::uint32_t offset = number(entries, 8);
    const std::uint32_t size = number(entries, 12);
    if (parts.container || type != binaryType || size == 0 || size > maximalContainer || offset > dataSize ||
        size > dataSize - offset)
      return false;
    parts.container = {.offset = dataOffset + offset, .size = size};
  }
  return true;
}

} // namespace

FileDescriptor openRegularFile(int directory, const std::string& path, Symlink symlink) {
  errno = ENOENT;
  if (path.find('\0') != std::string::npos)
    return FileDescriptor(-1);
  const int flags = O_CLOEXEC | (symlink == Symlink::Refused ? O_NOFOLLOW : 0);
  // Opening a device may have side effects; O_PATH does not open it.
  const FileDescriptor place(openat(directory, path.c_str(), O_PATH | flags));
  struct stat status {};
  if (!place || fstat(place.get(), &status) != 0)
    return FileDescriptor(-1);
  errno = 0;
  if (!S_ISREG(status.st_mode))
    return FileDescriptor(-1);
  // Opens the checked file, even if a FIFO has replaced it at the path. Without O_NONBLOCK it waits only for a lease.
  FileDescriptor file(open(("/proc/self/fd/" + std::to_string(place.get())).c_str(), O_RDONLY | O_CLOEXEC));
  if (file || errno != ENOENT)
    return file;
  return FileDescriptor(openat(directory, path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | flags));
}

std::optional<PackageParts> locateParts(int file) {
  constexpr off_t introEnd = leadSize + introSize;
  constexpr off_t longest = introEnd + maximalEntries * entrySize;
  struct stat status {};
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size < introEnd)
    return std::nullopt;
  // Reads the intro and all entries at once.
  const auto size = static_cast<std::size_t>(std::min(status.st_size, longest));
  const std::optional<std::string> start = readRange(file, 0, size);
  if (!start || !isLead(*start) || !beginsAsHeader(std::string_view(*start).substr(leadSize)))
    return std::nullopt;
  const std::uint32_t entryCount = number(*start, leadSize + 8);
  const std::uint32_t dataSize = number(*start, leadSize + 12);
  if (entryCount == 0 || entryCount > maximalEntries || dataSize > maximalData)
    return std::nullopt;

  PackageParts parts{.headerSize = introSize + entryCount * entrySize + dataSize, .contentOffset = 0, .container = {}};
  parts.contentOffset = leadSize + static_cast<off_t>((parts.headerSize + 7) / 8 * 8);
  if (parts.contentOffset > status.st_size)
    return std::nullopt;
  if (!findContainer(std::string_view(*start).substr(introEnd, entryCount * entrySize), dataSize, parts))
    return std::nullopt;
  return parts;
}

bool beginsAsHeader(std::string_view bytes) {
  return bytes.starts_with(headerMagic);
}

std::optional<std::string> readRange(int file, off_t offset, std::size_t size) {
  std::string bytes(size, '\0');
  return fill(file, offset, bytes) == size ? std::optional(std::move(bytes)) : std::nullopt;
}

bool forEachBlock(int file, off_t offset, const std::function<void(std::string_view)>& action) {
  std::string block(64 * 1024, '\0');
  for (;;) {
    const std::optional<std::size_t> count = fill(file, offset, block);
    if (!count)
      return false;
    if (*count > 0)
      action(std::string_view(block).substr(0, *count));
    if (*count < block.size())
      return true;
    offset += static_cast<off_t>(*count);
  }
}

} // namespace PackageSignatures
