// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/replacement.h"

#include "platform/rpmsign-external/src/package_file.h"
#include "platform/rpmsign-external/src/signing_error.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace PackageSignatures {

namespace {

/// A new, empty file and its name.
std::pair<FileDescriptor, std::string> makeTemporaryFile(int directory) {
  for (;;) {
    std::array<unsigned char, 8> random{};
    if (getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size()))
      failWithErrno("no file can be created beside it", errno);
    std::string name = ".krv-package-";
    for (const unsigned char byte : random)
      name += "0123456789abcdefghijklmnopqrstuv"[byte % 32];
    FileDescriptor file(openat(directory, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file)
      return {std::move(file), std::move(name)};
    if (errno != EEXIST)
      failWithErrno("no file can be created beside it", errno);
  }
}

void copyOwnerAndMode(int from, int to) {
  struct stat wanted {};
  struct stat made {};
  if (fstat(from, &wanted) != 0 || fstat(to, &made) != 0)
    failWithErrno("its owner and mode cannot be read", errno);
  if ((wanted.st_uid != made.st_uid || wanted.st_gid != made.st_gid) && fchown(to, wanted.st_uid, wanted.st_gid) != 0)
    failWithErrno("its owner cannot be kept", errno);
  // After fchown(), which clears the set-id bits.
  if (fchmod(to, wanted.st_mode & 07777) != 0)
    failWithErrno("its mode cannot be kept", errno);
}

/// Calls `read` twice, first for the size. `read` takes a buffer and its size, like the calls of xattr(7).
template <typename Read>
std::vector<char> readSized(Read read) {
  const ssize_t size = read(nullptr, 0);
  std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 0);
  if (size < 0 || read(buffer.data(), buffer.size()) != size)
    failWithErrno("its attributes cannot be read", errno);
  return buffer;
}

void copyAttributes(int from, int to) {
  if (flistxattr(from, nullptr, 0) < 0 && errno == ENOTSUP)
    return;
  const std::vector<char> names = readSized([&](char* list, std::size_t size) { return flistxattr(from, list, size); });
  for (auto name = names.begin(); name != names.end(); name = std::find(name, names.end(), '\0') + 1) {
    const std::vector<char> value =
        readSized([&](char* data, std::size_t size) { return fgetxattr(from, &*name, data, size); });
    if (fsetxattr(to, &*name, value.data(), value.size(), 0) != 0)
      failWithErrno("its attribute " + std::string(&*name) + " cannot be kept", errno);
  }
}

void checkStillInPlace(int original, int directory, const std::string& name) {
  struct stat opened {};
  struct stat inPlace {};
  if (fstat(original, &opened) != 0 || fstatat(directory, name.c_str(), &inPlace, AT_SYMLINK_NOFOLLOW) != 0)
    failWithErrno("it cannot be replaced", errno);
  if (opened.st_dev != inPlace.st_dev || opened.st_ino != inPlace.st_ino)
    throw SigningError("another file replaced it meanwhile");
}

} // namespace

Replacement::Replacement(int directory, std::string name)
    : m_directory(directory), m_name(std::move(name)), m_file(-1) {
  std::tie(m_file, m_temporaryName) = makeTemporaryFile(directory);
}

Replacement::~Replacement() {
  if (!m_temporaryName.empty())
    unlinkat(m_directory, m_temporaryName.c_str(), 0);
}

void Replacement::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(m_file.get(), bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR)
      failWithErrno("the new file cannot be written", errno);
    bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
  }
}

void Replacement::writeRest(int file, off_t offset) {
  if (!forEachBlock(file, offset, [this](std::string_view block) { write(block); }))
    failWithErrno("it cannot be read", errno);
}

void Replacement::commit(int original) {
  copyOwnerAndMode(original, m_file.get());
  copyAttributes(original, m_file.get());
  if (fsync(m_file.get()) != 0)
    failWithErrno("the new file cannot be written", errno);
  checkStillInPlace(original, m_directory, m_name);
  if (renameat(m_directory, m_temporaryName.c_str(), m_directory, m_name.c_str()) != 0)
    failWithErrno("it cannot be replaced", errno);
  m_temporaryName.clear();
}

} // namespace PackageSignatures
