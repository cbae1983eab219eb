// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/facts.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmtag.h>

#include <algorithm>
#include <array>

namespace Common::Rpm {

bool fitsArchitecture(const Reader& package) {
  return rpmMachineScore(RPM_MACHTABLE_INSTARCH, package.tag(Tag::Architecture).c_str()) > 0;
}

bool hasScripts(const Reader& package) {
  // A script may be an interpreter alone, without a text for it.
  static constexpr auto tags = std::to_array<rpmTagVal>(
      {RPMTAG_PREIN, RPMTAG_PREINPROG, RPMTAG_POSTIN, RPMTAG_POSTINPROG, RPMTAG_PREUN, RPMTAG_PREUNPROG, RPMTAG_POSTUN,
       RPMTAG_POSTUNPROG, RPMTAG_PRETRANS, RPMTAG_PRETRANSPROG, RPMTAG_POSTTRANS, RPMTAG_POSTTRANSPROG,
       RPMTAG_TRIGGERSCRIPTS, RPMTAG_FILETRIGGERSCRIPTS, RPMTAG_TRANSFILETRIGGERSCRIPTS});
  return std::ranges::any_of(tags, [&](rpmTagVal tag) { return headerIsEntry(package.header().get(), tag) != 0; });
}

std::uint64_t promisedSize(const Reader& package) {
  // librpm answers with the smaller tag for packages that have no large one.
  return headerGetNumber(package.header().get(), RPMTAG_LONGSIGSIZE);
}

} // namespace Common::Rpm
