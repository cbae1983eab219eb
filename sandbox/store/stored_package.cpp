// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/stored_package.h"

#include "acceptance/package_header.h"
#include "sandbox/store/header_blob.h"

namespace Sandbox {

namespace InstallationTag = Acceptance::InstallationTag;
using Common::Rpm::Reader;

Reader withInstallationTags(const Reader& header, const StoredPackage& package, std::int64_t time) {
  Reader entry = importHeader(exportHeader(header));
  markInstalled(entry, time);
  addTexts(entry, InstallationTag::Source, {package.source});
  addTexts(entry, InstallationTag::KeyId, {package.developer.keyId});
  addTexts(entry, InstallationTag::PreviousKeyIds, package.developer.previousKeyIds);
  addTexts(entry, InstallationTag::Subgroup, {package.developer.subgroup});
  return entry;
}

std::optional<StoredPackage> storedPackage(const Reader& entry) {
  if (entry.texts(InstallationTag::KeyId).empty())
    return std::nullopt;
  return StoredPackage{{.name = entry.tag(Common::Rpm::Tag::Name),
                        .version = entry.tag(Common::Rpm::Tag::FullVersion),
                        .developer = {.keyId = entry.tag(InstallationTag::KeyId),
                                      .subgroup = entry.tagOr(InstallationTag::Subgroup, ""),
                                      .previousKeyIds = entry.texts(InstallationTag::PreviousKeyIds)}},
                       entry.tagOr(InstallationTag::Source, "")};
}

} // namespace Sandbox
