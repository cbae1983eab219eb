// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/entries.h"

#include "driver/log/log_message.h"

#include <system_error>

namespace Sandbox {

namespace fs = std::filesystem;

namespace {

Common::Error failure(const std::error_code& reason, const std::string& message) {
  LogMessage(LogLevel::Error) << reason.message();
  return {Common::ErrorCode::Filesystem, message};
}

} // namespace

fs::file_type typeOf(const fs::path& path) {
  std::error_code reason;
  const fs::file_type type = fs::symlink_status(path, reason).type();
  if (type == fs::file_type::none)
    throw failure(reason, "Couldn't get the type of: " + path.string());
  return type;
}

bool isReachedDirectly(const fs::path& root, const fs::path& name) {
  fs::path directory = root;
  for (const fs::path& part : name.parent_path()) {
    directory /= part;
    if (typeOf(directory) != fs::file_type::directory)
      return false;
  }
  return true;
}

void removeIfEmpty(const fs::path& directory) {
  if (typeOf(directory) != fs::file_type::directory)
    return;
  std::error_code reason;
  fs::remove(directory, reason);
  if (reason && reason != std::errc::directory_not_empty && reason != std::errc::file_exists)
    throw failure(reason, "Couldn't remove directory: " + directory.string());
}

} // namespace Sandbox
