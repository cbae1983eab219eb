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

/// The offset of the main header in a package, behind the lead and the padded signature header.
std::size_t mainHeaderOffset(const std::string& package);

/// The offset of the payload in a package, behind the main header.
std::size_t payloadOffset(const std::string& package);

/// Hides a tag of the main header, in place, by changing its number to an unused one. Removes all signatures and
/// digests, which would be wrong.
void hideTag(const std::filesystem::path& package, std::int32_t tag);

/// Adds a value of any type under a tag; librpm's typed functions would refuse wrong types.
void putValue(Header header, rpmTagVal tag, rpmTagType type, const void* value, rpm_count_t count = 1);

enum class Region { Immutable, None };

/// Changes the main header in place. Keeps the payload and the digests of the files; removes all signatures and other
/// digests. The new header has an immutable region unless `region` is None, as with RPM 3.
void changeHeader(const std::filesystem::path& package, const std::function<void(Header)>& change,
                  Region region = Region::Immutable);

/// Replaces the signature header by a new one with the digest of the main header, which librpm checks. It claims
/// `excess` more bytes than the file has.
void sealHeader(const std::filesystem::path& package, std::size_t excess = 0);

/// Replaces the payload of a package, with the signature header of changeHeader().
void replacePayload(const std::filesystem::path& package, std::string_view payload);

/// Replaces `from` by `to`, which has the same length, everywhere in the main header and in the payload, which must be
/// uncompressed. Throws if `from` does not occur.
void replaceEverywhere(const std::filesystem::path& package, std::string_view from, std::string_view to);

} // namespace Support
