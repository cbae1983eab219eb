// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Helpers of the fuzz targets. A target is one file with LLVMFuzzerTestOneInput; the main function comes from
/// libFuzzer or from replay.cpp.
namespace Fuzz {

/// The number of inputs that the process has run, and how many of them passed the first checks. Printed at the end of
/// the process: a target that accepts nothing tests nothing.
struct Tally {
  std::size_t inputs = 0;
  std::size_t accepted = 0;
};
const Tally& tally();

/// Begins one run and returns its input. From the first run on, log lines are counted and discarded.
std::string_view begin(const std::uint8_t* data, std::size_t size);

/// Counts the input of this run as accepted.
void accept();

/// The number of log lines since begin().
std::size_t loggedLines();

/// Aborts the process, which the fuzzer reports as a find, unless `holds`.
void require(bool holds, const char* property);

/// A regular file in memory.
class MemoryFile {
public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  void assign(std::string_view content) const;
  const std::string& path() const { return m_path; }

private:
  int m_descriptor;
  std::string m_path;
};

} // namespace Fuzz
