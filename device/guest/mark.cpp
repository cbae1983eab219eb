// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "device/guest/mark.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace Device {

namespace {

constexpr std::size_t blockSize = 4096;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::abort();
}

} // namespace

void mark(const char* label) {
  std::ifstream registry("/var/lib/krv/registry", std::ios::binary);
  const std::string records{std::istreambuf_iterator<char>(registry), {}};
  const std::string text = std::string("krv-mark ") + label + " " + std::to_string(records.size()) + "\n" + records;

  const char* place = std::getenv("KRV_MARK");
  std::istringstream words(place == nullptr ? "" : place);
  std::string disk;
  off_t offset = 0;
  if (!(words >> disk >> offset))
    fail("KRV_MARK");
  const std::size_t size = (text.size() + blockSize - 1) / blockSize * blockSize;
  void* const buffer = std::aligned_alloc(blockSize, size);
  if (buffer == nullptr)
    fail("memory");
  std::memset(buffer, 0, size);
  std::memcpy(buffer, text.data(), text.size());
  const int file = open(disk.c_str(), O_WRONLY | O_DIRECT | O_CLOEXEC);
  if (file < 0 || pwrite(file, buffer, size, offset) != static_cast<ssize_t>(size))
    fail(disk.c_str());
  close(file);
  std::free(buffer);
}

} // namespace Device
