// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/xattr.h"

#include "common/filesystem/failure.h"

#include <sys/types.h>
#include <sys/xattr.h>

namespace Common::Filesystem {

namespace fs = std::filesystem;

namespace {

std::size_t sizeOrThrow(ssize_t result, const char* failure, const std::string& subject) {
  if (result < 0)
    throw Failure::error(failure + subject);
  return static_cast<std::size_t>(result);
}

/// Gets a size from `read`, then lets it fill a buffer of that size. The buffer keeps this size even if the attribute
/// changes in between.
template <typename Read>
std::string readSized(Read read, const std::string& subject) {
  std::string buffer(sizeOrThrow(read(nullptr, 0), "Couldn't retrieve size of ", subject), '\0');
  sizeOrThrow(read(buffer.empty() ? nullptr : buffer.data(), buffer.size()), "Couldn't retrieve ", subject);
  return buffer;
}

/// The file of a path, symlinks followed.
struct NamedFile {
  const char* path;

  ssize_t list(char* buffer, std::size_t size) const { return listxattr(path, buffer, size); }
  ssize_t get(const char* name, char* buffer, std::size_t size) const { return getxattr(path, name, buffer, size); }
};

struct OpenFile {
  int descriptor;

  ssize_t list(char* buffer, std::size_t size) const { return flistxattr(descriptor, buffer, size); }
  ssize_t get(const char* name, char* buffer, std::size_t size) const {
    return fgetxattr(descriptor, name, buffer, size);
  }
};

template <typename File>
std::string getOf(const File& file, const fs::path& path, const std::string& name) {
  const std::string subject = name + " extended attribute: " + path.string();
  return readSized([&](char* buffer, std::size_t size) { return file.get(name.c_str(), buffer, size); }, subject);
}

template <typename File>
XattrList listOf(const File& file, const fs::path& path) {
  const std::string names = readSized([&](char* buffer, std::size_t size) { return file.list(buffer, size); },
                                      "extended attributes: " + path.string());
  XattrList attributes;
  for (std::size_t offset = 0; offset < names.size();) {
    std::string name = names.c_str() + offset;
    offset += name.size() + 1;
    std::string value = getOf(file, path, name);
    attributes.emplace_back(std::move(name), std::move(value));
  }
  return attributes;
}

} // namespace

std::string getXattr(const fs::path& path, const std::string& name) {
  return getOf(NamedFile{path.c_str()}, path, name);
}

XattrList listXattrs(const fs::path& path) {
  return listOf(NamedFile{path.c_str()}, path);
}

XattrList listXattrs(int descriptor, const fs::path& path) {
  return listOf(OpenFile{descriptor}, path);
}

void setXattr(const fs::path& path, const std::string& name, const std::string& value) {
  if (value.empty())
    return;
  if (lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) < 0)
    throw Failure::error("Couldn't attach " + name + " extended attribute to " + path.string());
}

} // namespace Common::Filesystem
