// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/stored_package.h"

#include "common/rpm/header_blob.h"

#include <algorithm>
#include <array>

namespace Sandbox {

namespace {

using Common::Rpm::Reader;

// Numbers of nobody else, behind the one with which the signature header of a package has its CMSes.
constexpr std::int32_t sourceTag = 1263687236;
constexpr std::int32_t keyIdTag = 1263687237;
constexpr std::int32_t previousKeyIdsTag = 1263687238;
constexpr std::int32_t subgroupTag = 1263687239;

} // namespace

bool hasInstallationFacts(const Reader& header) {
  static constexpr auto tags = std::to_array({sourceTag, keyIdTag, previousKeyIdsTag, subgroupTag});
  return std::ranges::any_of(tags, [&](std::int32_t tag) { return !header.texts(tag).empty(); });
}

Reader withInstallationFacts(const Reader& header, const StoredPackage& package, std::int64_t time) {
  Reader entry = Common::Rpm::importHeader(Common::Rpm::exportHeader(header));
  Common::Rpm::markInstalled(entry, time);
  Common::Rpm::addTexts(entry, sourceTag, {package.source});
  Common::Rpm::addTexts(entry, keyIdTag, {package.developerKeyId});
  Common::Rpm::addTexts(entry, previousKeyIdsTag, package.previousKeyIds);
  Common::Rpm::addTexts(entry, subgroupTag, {package.developerSubgroup});
  return entry;
}

std::optional<StoredPackage> storedPackage(const Reader& entry) {
  if (entry.texts(keyIdTag).empty())
    return std::nullopt;
  return StoredPackage{.name = entry.tag(Common::Rpm::Tag::Name),
                       .version = entry.tag(Common::Rpm::Tag::FullVersion),
                       .source = entry.tagOr(sourceTag, ""),
                       .developerKeyId = entry.tag(keyIdTag),
                       .previousKeyIds = entry.texts(previousKeyIdsTag),
                       .developerSubgroup = entry.tagOr(subgroupTag, "")};
}

} // namespace Sandbox
