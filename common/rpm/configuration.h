// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Common::Rpm {

/// Reads RPM's configuration files, once per process. A failure is not fatal: it is logged as the warning "Couldn't
/// read RPM configuration files", and the next call tries again. From the first call on, librpm prints its messages and
/// notices to standard error. Only for the single thread of the program.
void ensureRpmConfig();

/// Whether ensureRpmConfig() has succeeded.
bool isRpmConfigured();

/// Makes the absolute `folder` the place of RPM's database for the rest of the process, over what the configuration
/// says, which is read first. librpm finds the place of its lock file once: to be called before anything is locked.
void setDatabaseFolder(const std::filesystem::path& folder);

} // namespace Common::Rpm
