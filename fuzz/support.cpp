// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "fuzz/support.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <streambuf>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace Fuzz {

namespace {

class LineCounter : public std::streambuf {
public:
  std::size_t lines = 0;

protected:
  int_type overflow(int_type character) override {
    if (character == '\n')
      ++lines;
    return traits_type::not_eof(character);
  }

  std::streamsize xsputn(const char* text, std::streamsize size) override {
    lines += static_cast<std::size_t>(std::count(text, text + size, '\n'));
    return size;
  }
};

/// Replaces the buffer of standard output until the process ends.
struct Session {
  Session() : before(std::cout.rdbuf(&log)) {}
  ~Session() {
    std::cout.rdbuf(before);
    std::fprintf(stderr, "accepted %zu of %zu inputs\n", tally.accepted, tally.inputs);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  LineCounter log;
  std::streambuf* before;
  Tally tally;
};

Session& session() {
  static Session instance;
  return instance;
}

} // namespace

const Tally& tally() {
  return session().tally;
}

std::string_view begin(const std::uint8_t* data, std::size_t size) {
  ++session().tally.inputs;
  session().log.lines = 0;
  return {reinterpret_cast<const char*>(data), size};
}

void accept() {
  ++session().tally.accepted;
}

std::size_t loggedLines() {
  return session().log.lines;
}

void require(bool holds, const char* property) {
  if (holds)
    return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

MemoryFile::MemoryFile()
    : m_descriptor(memfd_create("fuzz", MFD_CLOEXEC)), m_path("/proc/self/fd/" + std::to_string(m_descriptor)) {
  if (m_descriptor < 0)
    throw std::system_error(errno, std::generic_category(), "memfd_create");
}

MemoryFile::~MemoryFile() {
  close(m_descriptor);
}

void MemoryFile::assign(std::string_view content) const {
  if (ftruncate(m_descriptor, 0) != 0 ||
      pwrite(m_descriptor, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size()))
    throw std::system_error(errno, std::generic_category(), m_path);
}

} // namespace Fuzz
