// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "fuzz/mutator.h"

#include <algorithm>

namespace Fuzz {

std::string mutateBytes(std::string bytes, std::size_t maximum) {
  const std::size_t size = bytes.size();
  bytes.resize(std::max<std::size_t>({size, maximum, 1}));
  bytes.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(bytes.data()), size, bytes.size()));
  return bytes;
}

std::size_t mutateInput(std::uint8_t* data, std::size_t size, std::size_t maximum, unsigned int seed,
                        const std::function<std::string(std::string_view, Random&)>& mutate) {
  Random random(seed);
  random.discard(8); // similar seeds give similar first numbers
  const std::string result = mutate({reinterpret_cast<const char*>(data), size}, random);
  const std::size_t used = std::min(result.size(), maximum);
  std::copy_n(result.begin(), used, data);
  return used;
}

} // namespace Fuzz
