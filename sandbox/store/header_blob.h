// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Sandbox {

/// The header of a package as bytes. Headers are equal if their bytes are equal. Throws Common::Error: Internal
/// "Couldn't export the header of a package".
std::string exportHeader(const Common::Rpm::Reader& package);

/// A header made from a copy of these bytes; changing it does not affect the original header. Throws Common::Error:
/// Internal "Couldn't read the header of a package".
Common::Rpm::Reader importHeader(std::string_view bytes);

/// Adds a list of texts under a tag number of our own to the header, which all copies of the reader share. Adds no tag
/// if the list is empty. Throws Common::Error: Internal "Couldn't add to the header of a package".
void addTexts(Common::Rpm::Reader& package, std::int32_t tag, const std::vector<std::string>& texts);

/// Adds the tags that librpm adds when it installs a package: the time, in seconds since 1970, and the state
/// "installed" for each file. Without the states librpm crashes on the entry in later transactions. Throws like
/// addTexts().
void markInstalled(Common::Rpm::Reader& package, std::int64_t time);

} // namespace Sandbox
