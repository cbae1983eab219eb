// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"

#include "common/error/error.h"
#include "common/filesystem/entry.h"
#include "common/filesystem/root.h"
#include "common/posix/regular_file.h"
#include "core/registry_content.h"
#include "driver/log/messages.h"

#include <boost/interprocess/exceptions.hpp>
#include <boost/interprocess/sync/file_lock.hpp>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <istream>
#include <optional>
#include <streambuf>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Core::KRV {

namespace fs = std::filesystem;

namespace {

fs::path registryPath() {
  return Common::Filesystem::rootDirectory() / "var/lib/krv/registry";
}

fs::path beside(fs::path registry, const char* suffix) {
  registry += suffix;
  return registry;
}

/// Creates or truncates the lock file. Returns no descriptor if that fails or if the path is not a regular file. A
/// symlink is refused, because its target would be truncated.
Common::Posix::FileDescriptor openLockFile(const fs::path& path) {
  constexpr mode_t reducedByTheUmask = 0666;
  struct stat status {};
  auto file = Common::Posix::openRegularFile(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW, reducedByTheUmask, status);
  return file && ftruncate(file.get(), 0) == 0 ? std::move(file) : Common::Posix::FileDescriptor();
}

/// A path by which Boost opens the same file again, even if `path` was replaced meanwhile. Without /proc it returns
/// `path`.
fs::path pathOf(const Common::Posix::FileDescriptor& file, const fs::path& path) {
  const fs::path link = "/proc/self/fd/" + std::to_string(file.get());
  std::error_code ignored;
  return fs::exists(link, ignored) ? link : path;
}

/// Blocks until this process holds the lock, also if signal handlers run meanwhile. Throws interprocess_exception.
void acquire(boost::interprocess::file_lock& lock) {
  for (;;) {
    try {
      return lock.lock();
    } catch (const boost::interprocess::interprocess_exception& exception) {
      if (exception.get_native_error() != EINTR)
        throw;
    }
  }
}

/// Runs `work` while this process holds the registry's lock, and returns its result.
template <typename Work>
bool withLock(const fs::path& registry, Work work) {
  const fs::path lockFile = beside(registry, ".lock");
  Common::Filesystem::createDirectories(lockFile.parent_path());
  const Common::Posix::FileDescriptor file = openLockFile(lockFile);
  if (!file) {
    logLine<Message::NoLockFile>(lockFile);
    return false;
  }
  // The system releases the lock as soon as this process closes any descriptor of the file. So both descriptors stay
  // open until `work` returns or throws, and `work` must not open the file.
  std::optional<boost::interprocess::file_lock> lock;
  try {
    lock.emplace(pathOf(file, lockFile).c_str());
    acquire(*lock);
  } catch (const boost::interprocess::interprocess_exception& exception) {
    logLine<Message::ErrorText>(exception.what());
    logLine<Message::NoLock>();
    return false;
  }
  return work();
}

/// Reads from an open file. If read() fails, it throws, and std::istream sets badbit.
class FileBuffer : public std::streambuf {
public:
  explicit FileBuffer(const Common::Posix::FileDescriptor& file) : m_file(file) {}

private:
  int_type underflow() override {
    const ssize_t count = TEMP_FAILURE_RETRY(read(m_file.get(), m_bytes.data(), m_bytes.size()));
    if (count < 0)
      throw std::system_error(errno, std::generic_category());
    setg(m_bytes.data(), m_bytes.data(), m_bytes.data() + count);
    return count == 0 ? traits_type::eof() : traits_type::to_int_type(*gptr());
  }

  const Common::Posix::FileDescriptor& m_file;
  std::array<char, 65536> m_bytes;
};

enum class Reading { Done, Missing, Failed };

/// Calls `callback` with each valid record, from which it may move. Returns false after a read error.
template <typename Callback>
bool readOpenRegistry(const Common::Posix::FileDescriptor& file, Callback callback) {
  FileBuffer buffer(file);
  std::istream lines(&buffer);
  readLines(lines, callback);
  return !lines.bad();
}

/// A read error must not look like the end of the file, because the next write would drop the records that were not
/// read. A file of size 0 is not read: kernel files also have size 0, and reading them may block without end.
template <typename Callback>
Reading readRecords(const fs::path& registry, Callback callback) {
  if (!Common::Filesystem::exists(registry))
    return Reading::Missing;
  struct stat status {};
  const auto file = Common::Posix::openRegularFile(registry.c_str(), O_RDONLY, 0, status);
  if (file && (status.st_size == 0 || readOpenRegistry(file, callback)))
    return Reading::Done;
  logLine<Message::RegistryNotOpened>(registry);
  return Reading::Failed;
}

/// exists() also returns false if stat fails. That is good enough for reading, but writing would start a new registry
/// and drop the records of an existing one.
bool isSurelyMissing(const fs::path& registry) {
  std::error_code reason;
  return fs::status(registry, reason).type() == fs::file_type::not_found;
}

bool loadRecords(const fs::path& registry, std::vector<RegistryRecord>& records) {
  const Reading reading = readRecords(registry, [&](RegistryRecord& record) { records.push_back(std::move(record)); });
  if (reading != Reading::Missing || isSurelyMissing(registry))
    return reading != Reading::Failed;
  logLine<Message::RegistryNotOpened>(registry);
  return false;
}

/// Creates or truncates a file for writing. A FIFO is refused, because opening it would block until it has a reader.
std::ofstream openForWriting(const fs::path& path) {
  std::error_code ignored;
  return fs::is_fifo(path, ignored) ? std::ofstream() : std::ofstream(path, std::ios::trunc);
}

bool writeRecords(const fs::path& next, const std::vector<RegistryRecord>& records, const std::string& lastLine) {
  try {
    Common::Filesystem::createDirectories(next.parent_path());
  } catch (const Common::Error&) {
    return false; // the reason is logged
  }
  std::ofstream file = openForWriting(next);
  writeLines(file, records);
  file << lastLine << std::endl;
  // The last write error may be reported only here.
  file.close();
  return file.good();
}

bool replaceRegistry(const fs::path& next, const fs::path& registry) {
  try {
    Common::Filesystem::move(next, registry);
    return true;
  } catch (const Common::Error& error) {
    logLine<Message::ErrorText>(error.what());
    logLine<Message::RegistryNotReplaced>(next, registry);
    return false;
  }
}

} // namespace

bool Registry::foreachRecord(const std::function<void(const RegistryRecord&)>& callback) const {
  const fs::path registry = registryPath();
  return withLock(registry, [&] { return readRecords(registry, callback) != Reading::Failed; });
}

bool Registry::writeRecord(const RegistryRecord& record) const {
  const std::string line = toString(record); // throws for an unknown event, before anything is written
  const fs::path registry = registryPath();
  return withLock(registry, [&] {
    std::vector<RegistryRecord> records;
    if (!loadRecords(registry, records)) {
      logLine<Message::RecordsNotLoaded>();
      return false;
    }
    records = prune(std::move(records), record);
    const fs::path next = beside(registry, ".next");
    if (!writeRecords(next, records, line)) {
      logLine<Message::RecordsNotWritten>(next);
      return false;
    }
    return replaceRegistry(next, registry);
  });
}

} // namespace Core::KRV
