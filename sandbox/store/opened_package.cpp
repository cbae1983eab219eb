// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/opened_package.h"

#include "acceptance/package_length.h"
#include "common/error/error.h"
#include "common/rpm/reader.h"
#include "common/signatures/package_cmses.h"
#include "driver/log/log_message.h"
#include "sandbox/store/directory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

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
  const auto size = static_cast<std::uint64_t>(status.st_size);
  Acceptance::requireNothingBehindPayload(header, readable.get(), size, m_path);
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
