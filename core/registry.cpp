// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"

#include "common/error/error.h"
#include "common/filesystem/entry.h"
#include "common/filesystem/root.h"
#include "core/registry_content.h"
#include "driver/log/log_message.h"

#include <boost/interprocess/exceptions.hpp>
#include <boost/interprocess/sync/file_lock.hpp>

#include <array>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

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

/// Opens a file for writing, emptied. Opening a FIFO would wait for a reader, for ever if none comes: it is refused.
std::ofstream openForWriting(const fs::path& path) {
  std::error_code ignored;
  return fs::is_fifo(path, ignored) ? std::ofstream() : std::ofstream(path, std::ios::trunc);
}

/// Does `work` while this process holds the registry's lock, and returns its result.
template <typename Work>
bool withLock(const fs::path& registry, Work work) {
  const fs::path lockFile = beside(registry, ".lock");
  Common::Filesystem::createDirectories(lockFile.parent_path());
  if (!openForWriting(lockFile).is_open()) {
    LogMessage(LogLevel::Error) << "Couldn't create the registry lock file: " << lockFile;
    return false;
  }
  // The system drops the lock as soon as this process closes any descriptor of the file. It goes with `lock`,
  // therefore, however `work` ends, and `work` must not open the file.
  std::optional<boost::interprocess::file_lock> lock;
  try {
    lock.emplace(lockFile.c_str());
    lock->lock();
  } catch (const boost::interprocess::interprocess_exception& exception) {
    LogMessage(LogLevel::Error) << exception.what();
    LogMessage(LogLevel::Error) << "Couldn't get an exclusive registry lock";
    return false;
  }
  return work();
}

enum class Reading { Done, Missing, Failed };

/// Calls `callback` with each valid record, which it may plunder. A read error is a failure like one to open: taken for
/// the end of the file, it would make the next write drop what could not be read.
template <typename Callback>
Reading readRecords(const fs::path& registry, Callback callback) {
  if (!Common::Filesystem::exists(registry))
    return Reading::Missing;
  std::array<char, 65536> buffer;
  std::ifstream file;
  file.rdbuf()->pubsetbuf(buffer.data(), buffer.size());
  // Only a regular file is sure to open without waiting and to end.
  if (Common::Filesystem::isRegularFile(registry))
    file.open(registry);
  readLines(file, callback);
  if (file.is_open() && !file.bad())
    return Reading::Done;
  LogMessage(LogLevel::Error) << "Couldn't open registry: " << registry;
  return Reading::Failed;
}

/// exists() takes a registry for missing also when the system cannot tell. Good enough for a reader, but to begin a new
/// registry then would drop all the records of the one that may be there.
bool isSurelyMissing(const fs::path& registry) {
  std::error_code reason;
  return fs::status(registry, reason).type() == fs::file_type::not_found;
}

bool loadRecords(const fs::path& registry, std::vector<RegistryRecord>& records) {
  const Reading reading = readRecords(registry, [&](RegistryRecord& record) { records.push_back(std::move(record)); });
  if (reading != Reading::Missing || isSurelyMissing(registry))
    return reading != Reading::Failed;
  LogMessage(LogLevel::Error) << "Couldn't open registry: " << registry;
  return false;
}

bool writeRecords(const fs::path& next, const std::vector<RegistryRecord>& records) {
  try {
    Common::Filesystem::createDirectories(next.parent_path());
  } catch (const Common::Error&) {
    return false; // the reason is in the log
  }
  std::ofstream file = openForWriting(next);
  writeLines(file, records);
  // The last failure may show no earlier than here.
  file.close();
  return file.good();
}

bool replaceRegistry(const fs::path& next, const fs::path& registry) {
  try {
    Common::Filesystem::move(next, registry);
    return true;
  } catch (const Common::Error& error) {
    LogMessage(LogLevel::Error) << error.what();
    LogMessage(LogLevel::Error) << "Couldn't atomically update registry: " << next << " -> " << registry;
    return false;
  }
}

} // namespace

bool Registry::foreachRecord(const std::function<void(const RegistryRecord&)>& callback) const {
  const fs::path registry = registryPath();
  return withLock(registry, [&] { return readRecords(registry, callback) != Reading::Failed; });
}

bool Registry::writeRecord(const RegistryRecord& record) const {
  const fs::path registry = registryPath();
  return withLock(registry, [&] {
    std::vector<RegistryRecord> records;
    if (!loadRecords(registry, records)) {
      LogMessage(LogLevel::Error) << "Couldn't load registry records";
      return false;
    }
    records = prune(std::move(records), record);
    records.push_back(record);
    const fs::path next = beside(registry, ".next");
    if (!writeRecords(next, records)) {
      LogMessage(LogLevel::Error) << "Couldn't write records to the next registry: " << next;
      return false;
    }
    return replaceRegistry(next, registry);
  });
}

} // namespace Core::KRV
