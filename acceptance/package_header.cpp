// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/package_header.h"

#include <rpm/header.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmtag.h>

#include <algorithm>
#include <array>

namespace Acceptance {

bool hasInstallationTags(const Common::Rpm::Reader& header) {
  static constexpr auto tags = std::to_array(
      {InstallationTag::Source, InstallationTag::KeyId, InstallationTag::PreviousKeyIds, InstallationTag::Subgroup});
  return std::ranges::any_of(tags, [&](std::int32_t tag) { return !header.texts(tag).empty(); });
}

bool fitsArchitecture(const Common::Rpm::Reader& package) {
  return rpmMachineScore(RPM_MACHTABLE_INSTARCH, package.tag(Common::Rpm::Tag::Architecture).c_str()) > 0;
}

bool hasScripts(const Common::Rpm::Reader& package) {
  // A script may consist of only an interpreter, without a text.
  static constexpr auto tags = std::to_array<rpmTagVal>(
      {RPMTAG_PREIN, RPMTAG_PREINPROG, RPMTAG_POSTIN, RPMTAG_POSTINPROG, RPMTAG_PREUN, RPMTAG_PREUNPROG, RPMTAG_POSTUN,
       RPMTAG_POSTUNPROG, RPMTAG_PRETRANS, RPMTAG_PRETRANSPROG, RPMTAG_POSTTRANS, RPMTAG_POSTTRANSPROG,
       RPMTAG_TRIGGERSCRIPTS, RPMTAG_FILETRIGGERSCRIPTS, RPMTAG_TRANSFILETRIGGERSCRIPTS});
  return std::ranges::any_of(tags, [&](rpmTagVal tag) { return headerIsEntry(package.header().get(), tag) != 0; });
}

} // namespace Acceptance
