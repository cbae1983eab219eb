// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// A library for LD_PRELOAD in krv-sandbox-service on files that were copied out of a disk. The journal of a transaction
// knows files by their inode numbers, which a copy does not have. So fstatat tells the numbers that the files had: the
// file that KRV_INODES names has a line for each, with the number here and the number there. All other files get
// numbers that no disk has.
#include <cstdlib>
#include <fstream>
#include <unordered_map>

#include <dlfcn.h>
#include <sys/stat.h>

namespace {

constexpr ino_t others = ino_t{1} << 40U;

std::unordered_map<ino_t, ino_t> readNumbers() {
  std::unordered_map<ino_t, ino_t> numbers;
  const char* const path = std::getenv("KRV_INODES");
  std::ifstream file(path == nullptr ? "" : path);
  for (ino_t here = 0, there = 0; file >> here >> there;)
    numbers.emplace(here, there);
  return numbers;
}

} // namespace

extern "C" int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
  static const auto next = reinterpret_cast<int (*)(int, const char*, struct stat*, int)>(dlsym(RTLD_NEXT, "fstatat"));
  static const std::unordered_map<ino_t, ino_t> numbers = readNumbers();
  const int result = next(directory, path, status, flags);
  if (result == 0) {
    const auto found = numbers.find(status->st_ino);
    status->st_ino = found == numbers.end() ? status->st_ino + others : found->second;
  }
  return result;
}
