// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <string_view>

/// libFuzzer's own mutations of `size` bytes, which may become up to `maximum`. Returns the new size.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximum);

namespace Fuzz {

using Random = std::minstd_rand;

/// LLVMFuzzerMutate on a string.
std::string mutateBytes(std::string bytes, std::size_t maximum);

/// A target's LLVMFuzzerCustomMutator in terms of `mutate`. A result that is too long is cut off.
std::size_t mutateInput(std::uint8_t* data, std::size_t size, std::size_t maximum, unsigned int seed,
                        const std::function<std::string(std::string_view, Random&)>& mutate);

/// Changes one part of a package (lead, headers, payload, or an entry of a header) and puts the rest right so that
/// librpm does not turn the package away before it has looked at that part: counts and sizes, the trailers of header
/// regions, and, mostly, no digests.
std::string mutatePackage(std::string_view package, Random& random);

/// Changes one value in a row of DER values, at any depth, and the lengths around it.
std::string mutateDer(std::string_view der, Random& random);

} // namespace Fuzz
