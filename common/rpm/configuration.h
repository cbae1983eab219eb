// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace Common::Rpm {

/// Reads RPM's configuration files, once per process. A failure is not fatal: it is logged as the warning "Couldn't
/// read RPM configuration files", and the next call tries again. From the first call on, librpm prints its messages and
/// notices to standard error. Only for the single thread of the program.
void ensureRpmConfig();

/// Whether ensureRpmConfig() has succeeded.
bool isRpmConfigured();

} // namespace Common::Rpm
