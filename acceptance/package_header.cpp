// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/package_header.h"

#include <rpm/header.h>
#include <rpm/rpmtag.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace Acceptance {

bool hasInstallationTags(const Common::Rpm::Reader& header) {
  static constexpr auto tags = std::to_array(
      {InstallationTag::Source, InstallationTag::KeyId, InstallationTag::PreviousKeyIds, InstallationTag::Subgroup});
  return std::ranges::any_of(tags, [&](std::int32_t tag) { return !header.texts(tag).empty(); });
}

bool hasScripts(const Common::Rpm::Reader& package) {
  // A script may consist of only an interpreter, without a text.
  static constexpr auto tags = std::to_array<rpmTagVal>(
      {RPMTAG_PREIN, RPMTAG_PREINPROG, RPMTAG_POSTIN, RPMTAG_POSTINPROG, RPMTAG_PREUN, RPMTAG_PREUNPROG, RPMTAG_POSTUN,
       RPMTAG_POSTUNPROG, RPMTAG_PRETRANS, RPMTAG_PRETRANSPROG, RPMTAG_POSTTRANS, RPMTAG_POSTTRANSPROG,
       RPMTAG_TRIGGERSCRIPTS, RPMTAG_FILETRIGGERSCRIPTS, RPMTAG_TRANSFILETRIGGERSCRIPTS});
  return std::ranges::any_of(tags, [&](rpmTagVal tag) { return headerIsEntry(package.header().get(), tag) != 0; });
}

bool isSourcePackage(const Common::Rpm::Reader& package) {
  return headerIsSource(package.header().get()) != 0;
}

std::set<std::string> scriptInterpreters(const Common::Rpm::Reader& package) {
  // An interpreter with arguments is a list of texts.
  static constexpr auto ofOneScript =
      std::to_array<std::int32_t>({RPMTAG_PREINPROG, RPMTAG_POSTINPROG, RPMTAG_PREUNPROG, RPMTAG_POSTUNPROG,
                                   RPMTAG_PRETRANSPROG, RPMTAG_POSTTRANSPROG});
  static constexpr auto ofSeveralScripts = std::to_array<std::int32_t>(
      {RPMTAG_TRIGGERSCRIPTPROG, RPMTAG_FILETRIGGERSCRIPTPROG, RPMTAG_TRANSFILETRIGGERSCRIPTPROG});
  std::set<std::string> interpreters;
  for (const std::int32_t tag : ofOneScript)
    interpreters.insert(package.tagOr(tag, ""));
  for (const std::int32_t tag : ofSeveralScripts)
    for (const std::string& text : package.texts(tag))
      interpreters.insert(text);
  std::erase_if(interpreters, [](const std::string& text) { return !text.starts_with('/'); });
  return interpreters;
}

} // namespace Acceptance
