// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace Common::Rpm {

/// Reads RPM's configuration files, once per process. A failure is not fatal: it is logged as the warning "Couldn't
/// read RPM configuration files", and the next call tries again. librpm's messages, notices included, go to standard
/// error from the first call on. For the single thread of the program only.
void ensureRpmConfig();

/// Whether ensureRpmConfig() has succeeded.
bool isRpmConfigured();

} // namespace Common::Rpm
