// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Common::Rpm {

/// Reads RPM's configuration files, once per process. A failure is not fatal: it is logged as the warning "Couldn't
/// read RPM configuration files", and the next call tries again. librpm's messages, notices included, go to standard
/// error from the first call on. For the single thread of the program only.
void ensureRpmConfig();

/// Whether ensureRpmConfig() has succeeded.
bool isRpmConfigured();

/// Makes the absolute `folder` the place of RPM's database for the rest of the process, over what the configuration
/// says, which is read first. librpm finds the place of its lock file once: to be called before anything is locked.
void setDatabaseFolder(const std::filesystem::path& folder);

/// Makes RPM's database, or what is missing of it. False after librpm's own lines about the reason.
bool makeDatabase();

} // namespace Common::Rpm
