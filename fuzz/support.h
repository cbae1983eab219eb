// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// What the fuzz targets share. A target is one file with LLVMFuzzerTestOneInput; libFuzzer brings the main function,
/// or replay.cpp does.
namespace Fuzz {

/// How many inputs a process has run, and how many of them were taken for what they pretend to be instead of being
/// turned away by the first check. Printed at the end of the process: a target that accepts nothing tests nothing.
struct Tally {
  std::size_t inputs = 0;
  std::size_t accepted = 0;
};
const Tally& tally();

/// Begins one run and returns its input. From the first run on the log is counted and goes nowhere.
std::string_view begin(const std::uint8_t* data, std::size_t size);

/// Counts the input of this run as accepted.
void accept();

/// The lines that the log has got since begin().
std::size_t loggedLines();

/// Ends the process in the way that the fuzzer takes for a find.
void require(bool holds, const char* property);

/// A regular file that is nowhere on a disk.
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
