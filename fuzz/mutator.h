// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <string_view>

/// libFuzzer's own mutation of `size` bytes, which may grow to `maximum`. Returns the new size.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximum);

namespace Fuzz {

using Random = std::minstd_rand;

/// LLVMFuzzerMutate on a string.
std::string mutateBytes(std::string bytes, std::size_t maximum);

/// Implements a target's LLVMFuzzerCustomMutator with `mutate`. Cuts off a result that is too long.
std::size_t mutateInput(std::uint8_t* data, std::size_t size, std::size_t maximum, unsigned int seed,
                        const std::function<std::string(std::string_view, Random&)>& mutate);

/// Changes one part of a package (lead, headers, payload, or an entry of a header). Corrects counts, sizes and the
/// trailers of header regions and usually removes the digests, so that librpm does not refuse the package before it
/// reads that part.
std::string mutatePackage(std::string_view package, Random& random);

/// Changes one value in a sequence of DER values, at any depth, and corrects the lengths around it.
std::string mutateDer(std::string_view der, Random& random);

} // namespace Fuzz
