// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/packages/rpm_version.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmver.h>

namespace Support {

bool librpmIsAtLeast(const char* version) {
  return rpmvercmp(RPMVERSION, version) >= 0;
}

} // namespace Support
