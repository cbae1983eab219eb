// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace Support {

/// Where the payload of a package with these bytes begins: behind the lead, the signature header with its padding, and
/// the main header.
std::size_t payloadOffset(const std::string& package);

/// Makes a tag of the main header absent, in place, by giving its entry a number that nobody asks for. All signatures
/// and digests go, so that none of them is wrong.
void hideTag(const std::filesystem::path& package, std::int32_t tag);

} // namespace Support
