// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/files/tree.h"

#include "tests/support/process/temp_directory.h"

#include <cerrno>
#include <functional>
#include <iomanip>
#include <map>
#include <sstream>
#include <system_error>

#include <sys/xattr.h>

namespace Support {

namespace fs = std::filesystem;

namespace {

std::string attributesOf(const fs::path& path) {
  std::string names(4096, '\0');
  const ssize_t length = llistxattr(path.c_str(), names.data(), names.size());
  names.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  std::map<std::string, std::string> attributes;
  for (std::size_t offset = 0; offset < names.size();) {
    const std::string name = names.c_str() + offset;
    std::string value(65536, '\0');
    const ssize_t size = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    value.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    attributes[name] = value;
    offset += name.size() + 1;
  }
  std::ostringstream text;
  for (const auto& [name, value] : attributes)
    text << ' ' << name << '=' << std::quoted(value);
  return text.str();
}

/// Long content is described by its size and a fingerprint.
std::string describeContent(const std::string& content) {
  std::ostringstream text;
  if (content.size() < 65536)
    text << std::quoted(content);
  else
    text << content.size() << " bytes, " << std::hash<std::string>()(content);
  return text.str();
}

std::string describe(const fs::path& path) {
  const fs::file_status status = fs::symlink_status(path);
  std::ostringstream text;
  switch (status.type()) {
  case fs::file_type::regular:
    text << "file " << std::oct << static_cast<unsigned>(status.permissions()) << ' ' << describeContent(readFile(path))
         << attributesOf(path);
    break;
  case fs::file_type::symlink:
    text << "link " << fs::read_symlink(path);
    break;
  case fs::file_type::directory:
    text << "directory";
    break;
  case fs::file_type::not_found:
    text << "nothing";
    break;
  default:
    text << "special file";
  }
  return text.str();
}

} // namespace

std::string describeTree(const fs::path& path) {
  std::map<std::string, std::string> lines;
  if (fs::is_directory(fs::symlink_status(path))) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path))
      lines[entry.path().lexically_relative(path)] = describe(entry.path());
  }
  std::string text = describe(path) + "\n";
  for (const auto& [name, description] : lines)
    text += name + ": " + description + "\n";
  return text;
}

void attach(const fs::path& path, const std::string& name, const std::string& value) {
  if (lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) != 0)
    throw std::system_error(errno, std::generic_category(), path.string());
}

bool keepsAttributes(const fs::path& folder) {
  return setxattr(folder.c_str(), "user.probe", "x", 1, 0) == 0 && removexattr(folder.c_str(), "user.probe") == 0;
}

} // namespace Support
