// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include <rpm/rpmtag.h>

namespace Support {

/// Where the payload of a package with these bytes begins: behind the lead, the signature header with its padding, and
/// the main header.
std::size_t payloadOffset(const std::string& package);

/// Takes one tag out of the main header, in place, the way no build tool would. All signatures and digests go too, so
/// that none of them is wrong.
void removeTag(const std::filesystem::path& package, std::int32_t tag);

} // namespace Support
