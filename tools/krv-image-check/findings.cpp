// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/findings.h"

#include <algorithm>
#include <tuple>

namespace ImageCheck {

void sortFindings(Findings& findings) {
  // Nothing comes before every entry.
  std::ranges::stable_sort(findings, {}, [](const Finding& finding) {
    return std::tie(finding.entry, finding.id, finding.about, finding.message);
  });
}

} // namespace ImageCheck
