// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/package_facts.h"

#include "common/rpm/reader.h"
#include "common/signatures/package_cmses.h"

PackageFacts readPackageFacts(const std::filesystem::path& path) {
  const Common::Rpm::Reader reader(path.native());
  PackageFacts facts;
  facts.name = reader.tag(Common::Rpm::Tag::Name);
  // Keep this order: the log names the first missing tag.
  facts.version = reader.tag(Common::Rpm::Tag::Version) + "-";
  facts.version += reader.tag(Common::Rpm::Tag::Release);
  facts.developer = Common::developerIdentity(Common::readPackageCmses(path.native(), false));
  return facts;
}
