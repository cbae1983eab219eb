// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/package_events.h"

#include "acceptance/package_event.h"
#include "common/error/error.h"
#include "common/filesystem/root.h"
#include "common/posix/regular_file.h"
#include "core/registry.h"
#include "core/registry_content.h"
#include "driver/log/log_message.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <vector>

#include <unistd.h>

namespace Sandbox {

namespace {

using Core::KRV::RegistryRecord;

Common::Error registryError(const std::string& message) {
  return {Common::ErrorCode::Filesystem, message};
}

void forEachRecord(const std::function<void(const RegistryRecord&)>& visitor) {
  if (!Core::KRV::Registry().foreachRecord(visitor))
    throw registryError("Couldn't read the package registry");
}

/// Reads the registry; returns nothing if it does not exist. Registry::foreachRecord() takes a registry for missing if
/// its status cannot be read; here that would take back an installation that was acknowledged. Without the lock,
/// because writers replace the registry in one rename.
std::optional<std::string> readRegistry() {
  const std::filesystem::path path = Common::Filesystem::rootDirectory() / "var/lib/krv/registry";
  struct stat status {};
  const auto file = Common::Posix::openRegularFile(path.c_str(), O_RDONLY, 0, status);
  if (!file && errno == ENOENT)
    return std::nullopt;
  std::string content;
  std::array<char, 65536> buffer;
  ssize_t count = -1;
  while (file && (count = TEMP_FAILURE_RETRY(read(file.get(), buffer.data(), buffer.size()))) > 0)
    content.append(buffer.data(), static_cast<std::size_t>(count));
  if (count == 0)
    return content;
  LogMessage(LogLevel::Error) << "Couldn't open registry: " << path;
  throw registryError("Couldn't read the package registry");
}

} // namespace

RegistryRecord newRecord(RegistryRecord::Event event, const StoredPackage& package) {
  std::vector<RegistryRecord> older;
  forEachRecord([&](const RegistryRecord& record) {
    if (record.packageId == package.name)
      older.push_back(record);
  });
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return Acceptance::eventRecord(event, package, older, std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

bool isRecorded(const std::string& line) {
  const std::optional<std::string> registry = readRegistry();
  if (!registry)
    return false;
  bool found = false;
  std::istringstream lines(*registry);
  Core::KRV::readLines(lines, [&](const RegistryRecord& record) { found = found || toString(record) == line; });
  return found;
}

void record(const RegistryRecord& event) {
  if (!Core::KRV::Registry().writeRecord(event))
    throw registryError("Couldn't write to the package registry: " + event.packageId);
}

} // namespace Sandbox
