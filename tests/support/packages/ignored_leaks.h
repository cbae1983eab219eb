// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace Support {

/// While it exists, the leak checker ignores allocations of the thread. For librpm calls on lists of different lengths,
/// which leak some bytes.
#ifdef __SANITIZE_ADDRESS__
using IgnoredLeaks = __lsan::ScopedDisabler;
#else
struct IgnoredLeaks {
  IgnoredLeaks() {} // avoids the warning about an unused variable
};
#endif

} // namespace Support
