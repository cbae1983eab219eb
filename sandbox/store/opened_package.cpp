// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/opened_package.h"

#include "common/error/error.h"
#include "common/rpm/reader.h"
#include "common/signatures/package_cmses.h"
#include "driver/log/log_message.h"
#include "sandbox/store/directory.h"

#include <rpm/rpmtag.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <system_error>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Sandbox {

namespace {

using Common::Error;
using Common::ErrorCode;
using Common::Posix::FileDescriptor;

/// Uses O_PATH first: opening a FIFO could block, and opening a device may have side effects.
FileDescriptor nameFile(const std::string& path) {
  if (!path.starts_with('/'))
    throw Error(ErrorCode::FileNotFound, "The path of the package is not absolute: " + path);
  FileDescriptor file(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
    throw Error(ErrorCode::FileNotFound, "The package is not an existing regular file: " + path);
  return file;
}

/// The offset of the main header, behind the lead and the signature header, which is padded to eight bytes.
std::optional<std::uint64_t> mainHeaderOffset(int file) {
  constexpr std::uint64_t leadSize = 96;
  constexpr std::uint64_t entrySize = 16;
  std::array<std::uint32_t, 4> intro{}; // magic, a reserved word, number of entries, size of the data
  if (pread(file, intro.data(), sizeof intro, leadSize) != sizeof intro)
    return std::nullopt;
  const std::uint64_t size = sizeof intro + entrySize * ntohl(intro[2]) + ntohl(intro[3]);
  return leadSize + (size + 7) / 8 * 8;
}

/// The size of the main header and the payload, as the signature header says; 0 if it does not say.
std::uint64_t promisedSize(const Common::Rpm::Reader& package) {
  // librpm returns the 32-bit tag if the package has no 64-bit tag.
  return headerGetNumber(package.header().get(), RPMTAG_LONGSIGSIZE);
}

template <typename Result>
Result checked(Result result, const std::string& path) {
  if (result >= 0)
    return result;
  const std::error_code reason(errno, std::generic_category());
  LogMessage(LogLevel::Error) << reason.message();
  throw Error(ErrorCode::Filesystem, "Couldn't copy the package: " + path);
}

void writeAll(int file, const char* bytes, std::size_t size, const std::string& path) {
  while (size > 0) {
    const auto written = static_cast<std::size_t>(checked(write(file, bytes, size), path));
    bytes += written;
    size -= written;
  }
}

} // namespace

OpenedPackage::OpenedPackage(const std::string& path) : m_path(path), m_file(nameFile(path)) {}

void OpenedPackage::requirePackage() {
  const std::string opened = pathOf(m_file);
  const Common::Rpm::Reader header(opened);
  Common::readPackageCmses(opened, false);
  FileDescriptor readable(open(opened.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (!readable || fstat(readable.get(), &status) != 0)
    throw Error(ErrorCode::FileNotFound, "The package cannot be read: " + m_path);
  const std::optional<std::uint64_t> begin = mainHeaderOffset(readable.get());
  const auto size = static_cast<std::uint64_t>(status.st_size);
  const std::uint64_t promised = promisedSize(header);
  // rpm(8) also refuses bytes behind the payload, because its digests cover them; librpm alone ignores them.
  if (!begin || *begin > size || size - *begin > promised)
    throw Error(ErrorCode::BadPackageFileFormat, "The package file is longer than its headers say: " + m_path);
  m_file = std::move(readable);
  m_size = size;
}

void OpenedPackage::copyTo(const FileDescriptor& destination) const {
  std::array<char, 65536> buffer;
  for (std::uint64_t offset = 0; offset < m_size;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), m_size - offset));
    const auto count = static_cast<std::size_t>(
        checked(pread(m_file.get(), buffer.data(), wanted, static_cast<off_t>(offset)), m_path));
    if (count == 0)
      return; // the file has become shorter; later checks refuse it like any other truncated file
    writeAll(destination.get(), buffer.data(), count, m_path);
    offset += count;
  }
}

} // namespace Sandbox
