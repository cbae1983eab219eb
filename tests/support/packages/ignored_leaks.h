// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace Support {

/// While it exists, the leak checker ignores what the thread allocates. For calls of librpm with lists whose lengths do
/// not fit each other: it loses some bytes of them.
#ifdef __SANITIZE_ADDRESS__
using IgnoredLeaks = __lsan::ScopedDisabler;
#else
struct IgnoredLeaks {
  IgnoredLeaks() {} // a variable of this type is not unused
};
#endif

} // namespace Support
