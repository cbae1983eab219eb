// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Sandbox {

/// The header of a package as bytes. Two headers with the same bytes are the same.
std::string exportHeader(const Common::Rpm::Reader& package);

/// The header with these bytes, which are copied; it may be changed without any effect on the one they came from.
/// Throws Common::Error: Internal "Couldn't read the header of a package".
Common::Rpm::Reader importHeader(std::string_view bytes);

/// Adds a list of texts under a tag number of our own to a header, and so to that of all copies of the reader. No
/// texts, no tag. Throws Common::Error: Internal "Couldn't add to the header of a package".
void addTexts(Common::Rpm::Reader& package, std::int32_t tag, const std::vector<std::string>& texts);

/// Adds what librpm itself adds when it installs a package: the time, in seconds since 1970, and that each of its files
/// has been installed. Without the latter librpm crashes on the entry in later transactions. Throws as addTexts().
void markInstalled(Common::Rpm::Reader& package, std::int64_t time);

} // namespace Sandbox
