// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/xattr.h"

#include "common/filesystem/failure.h"

#include <sys/types.h>
#include <sys/xattr.h>

namespace Common::Filesystem {

namespace fs = std::filesystem;

namespace {

std::size_t sizeOrThrow(ssize_t result, const std::string& message) {
  if (result < 0)
    throw Failure::error(message);
  return static_cast<std::size_t>(result);
}

/// Asks `read` for a size and then to fill a buffer of just that size. The buffer keeps it whatever the second answer:
/// the attributes may change in between.
template <typename Read>
std::string readSized(Read read, const std::string& sizeMessage, const std::string& message) {
  std::string buffer(sizeOrThrow(read(nullptr, 0), sizeMessage), '\0');
  sizeOrThrow(read(buffer.empty() ? nullptr : buffer.data(), buffer.size()), message);
  return buffer;
}

} // namespace

std::string getXattr(const fs::path& path, const std::string& name) {
  const std::string subject = name + " extended attribute: " + path.string();
  return readSized([&](char* buffer, std::size_t size) { return getxattr(path.c_str(), name.c_str(), buffer, size); },
                   "Couldn't retrieve size of " + subject, "Couldn't retrieve " + subject);
}

XattrList listXattrs(const fs::path& path) {
  const std::string subject = "extended attributes: " + path.string();
  const std::string names =
      readSized([&](char* buffer, std::size_t size) { return listxattr(path.c_str(), buffer, size); },
                "Couldn't retrieve size of " + subject, "Couldn't retrieve " + subject);

  XattrList attributes;
  for (std::size_t offset = 0; offset < names.size();) {
    std::string name = names.c_str() + offset;
    offset += name.size() + 1;
    std::string value = getXattr(path, name);
    attributes.emplace_back(std::move(name), std::move(value));
  }
  return attributes;
}

void setXattr(const fs::path& path, const std::string& name, const std::string& value) {
  if (value.empty())
    return;
  if (lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) < 0)
    throw Failure::error("Couldn't attach " + name + " extended attribute to " + path.string());
}

} // namespace Common::Filesystem
