// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpm/header.h>
#include <rpm/rpmtag.h>
#include <rpm/rpmtypes.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace Support {

/// Where the main header of a package with these bytes begins: behind the lead and the signature header with its
/// padding.
std::size_t mainHeaderOffset(const std::string& package);

/// Where the payload of a package with these bytes begins: behind the main header.
std::size_t payloadOffset(const std::string& package);

/// Makes a tag of the main header absent, in place, by giving its entry a number that nobody asks for. All signatures
/// and digests go, so that none of them is wrong.
void hideTag(const std::filesystem::path& package, std::int32_t tag);

/// Puts a value of any type under a tag, which librpm's own functions for the types refuse.
void putValue(Header header, rpmTagVal tag, rpmTagType type, const void* value, rpm_count_t count = 1);

/// Changes the main header in place, the way no build tool would. The payload and the digests of the single files stay;
/// all signatures and other digests go.
void changeHeader(const std::filesystem::path& package, const std::function<void(Header)>& change);

/// Makes the signature header anew, with the digest of the main header, which librpm's checks ask for. It claims that
/// `excess` bytes more follow it than do.
void sealHeader(const std::filesystem::path& package, std::size_t excess = 0);

/// Puts other bytes behind the headers of a package, with the signature header that changeHeader() leaves.
void replacePayload(const std::filesystem::path& package, std::string_view payload);

/// Puts `to` in the place of `from`, which is of the same length, everywhere in the main header and in the payload;
/// that one must not be compressed. Throws when there is no such place.
void replaceEverywhere(const std::filesystem::path& package, std::string_view from, std::string_view to);

} // namespace Support
