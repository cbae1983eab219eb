// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/tools/krv-image-check/package_pool.h"
#include "tools/krv-image-check/model.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace ImageCheckTest {

/// The pre-install directory of an image: the entries, and the file of each.
struct RandomImage {
  std::vector<ImageCheck::Entry> entries; ///< sorted by name
  std::map<std::string, std::filesystem::path> files;
  std::string text; ///< for messages
};

/// One step in the life of a device: it boots an image, and then its user removes packages.
struct Step {
  RandomImage image;
  std::vector<std::string> removed;
};

/// The value of an environment variable, or `otherwise`.
std::uint64_t numberFromEnvironment(const char* variable, std::uint64_t otherwise);

/// A seed that no earlier run had, unless KRV_HISTORY_SEED sets it.
std::uint64_t historySeed();

/// Makes devices with a past.
class RandomHistories {
public:
  RandomHistories(PackagePool& pool, std::uint64_t seed) : m_pool(pool), m_random(seed) {}

  std::vector<Step> next();
  std::size_t below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(m_random); }

private:
  RandomImage image();
  Choice choice();
  template <typename Value>
  Value oneOf(const std::vector<Value>& values) {
    return values.at(below(values.size()));
  }

  PackagePool& m_pool;
  std::mt19937_64 m_random;
  std::map<std::filesystem::path, ImageCheck::Entry> m_described;
};

} // namespace ImageCheckTest
