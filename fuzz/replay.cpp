// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT

// Runs a fuzz target without libFuzzer, which gcc lacks: on every file of a corpus and, if the target has its own
// mutator, on some mutations of each file. The same files give the same mutations every time.
//
// usage: replay-TARGET FILE-OR-FOLDER...
#include "fuzz/mutator.h"
#include "fuzz/support.h"
#include "tests/support/process/temp_directory.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" __attribute__((weak)) std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                                                     std::size_t maximum, unsigned int seed);

/// Replaces libFuzzer's function: changes one byte.
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t) {
  static std::minstd_rand random;
  if (size > 0)
    data[random() % size] = static_cast<std::uint8_t>(random());
  return size;
}

namespace {

constexpr std::size_t maximum = 64 * 1024;
constexpr unsigned int mutations = 50;

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path))
    return {path};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(path))
    files.push_back(entry.path());
  std::ranges::sort(files);
  return files;
}

void runFile(const std::filesystem::path& path) {
  const std::string content = Support::readFile(path);
  std::vector<std::uint8_t> bytes(content.begin(), content.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  for (unsigned int seed = 0; LLVMFuzzerCustomMutator != nullptr && seed < mutations; ++seed) {
    std::size_t size = content.size();
    bytes.assign(content.begin(), content.end());
    bytes.resize(std::max(maximum, size));
    size = LLVMFuzzerCustomMutator(bytes.data(), size, bytes.size(), seed);
    // A vector of exactly this size, so that a sanitizer detects reads behind it.
    const std::vector<std::uint8_t> mutated(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    LLVMFuzzerTestOneInput(mutated.data(), mutated.size());
  }
}

} // namespace

int main(int count, char** arguments) {
  std::size_t files = 0;
  for (int i = 1; i < count; ++i) {
    for (const std::filesystem::path& path : filesOf(arguments[i])) {
      std::fprintf(stderr, "%s\n", path.c_str());
      runFile(path);
      ++files;
    }
  }
  if (files > 0 && Fuzz::tally().accepted > 0)
    return 0;
  std::fputs("the target accepted none of these inputs\n", stderr);
  return 1;
}
