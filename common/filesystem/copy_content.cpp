// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/copy_content.h"

#include "common/posix/regular_file.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Common::Filesystem {

namespace fs = std::filesystem;

namespace {

/// The two paths of a copy. check() throws errno as the standard library's copy_file() does.
struct Ends {
  const fs::path& from;
  const fs::path& to;

  template <typename Result>
  Result check(Result result) const {
    const int error = errno;
    if (result < 0)
      throw fs::filesystem_error("cannot copy file", from, to, std::error_code(error, std::generic_category()));
    return result;
  }
};

void writeAll(int to, const char* bytes, std::size_t size, const Ends& ends) {
  while (size > 0) {
    const auto written = static_cast<std::size_t>(ends.check(TEMP_FAILURE_RETRY(write(to, bytes, size))));
    bytes += written;
    size -= written;
  }
}

void copyBytes(int from, int to, const struct stat& status, const Ends& ends) {
  // Allocating the blocks of a large file in one call makes the copy a fifth faster. If fallocate() fails, write()
  // reports the reason. A sparse file is left out: it would get blocks that stay empty.
  constexpr off_t large = 1 << 20;
  constexpr off_t blockUnit = 512; // stat(3type)
  if (status.st_size >= large && status.st_blocks >= status.st_size / blockUnit)
    fallocate(to, FALLOC_FL_KEEP_SIZE, 0, status.st_size);
  constexpr std::size_t oneStep = std::size_t{1} << 30;
  while (copy_file_range(from, nullptr, to, nullptr, oneStep, 0) > 0) {
  }
  // copy_file_range() stops at the end, at an error, or if it cannot copy between the two file systems. read() and
  // write() copy the rest, if there is any.
  std::array<char, 65536> buffer;
  const auto readNext = [&] { return ends.check(TEMP_FAILURE_RETRY(read(from, buffer.data(), buffer.size()))); };
  while (const auto count = static_cast<std::size_t>(readNext()))
    writeAll(to, buffer.data(), count, ends);
}

} // namespace

Posix::FileDescriptor copyContent(const fs::path& from, const fs::path& to) {
  const Ends ends{from, to};
  struct stat status {};
  Posix::FileDescriptor source = Posix::openRegularFile(from.c_str(), O_RDONLY, 0, status);
  ends.check(source.get());

  Posix::FileDescriptor destination(
      ends.check(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & ACCESSPERMS)));
  struct stat made {};
  ends.check(fstat(destination.get(), &made));
  // The umask clears bits, and open(2) gives no set-id bits here.
  if (((made.st_mode ^ status.st_mode) & ALLPERMS) != 0)
    ends.check(fchmod(destination.get(), status.st_mode & ALLPERMS));
  copyBytes(source.get(), destination.get(), status, ends);
  ends.check(destination.close());
  return source;
}

} // namespace Common::Filesystem
