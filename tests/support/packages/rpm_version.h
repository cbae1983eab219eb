// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace Support {

/// Whether the version of librpm at run time is `version` ("4.20") or newer.
bool librpmIsAtLeast(const char* version);

} // namespace Support
