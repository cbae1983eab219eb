// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace Common::Rpm {

/// Reads RPM's configuration files, once per process. A failure is not fatal: it is logged as the warning "Couldn't
/// read RPM configuration files", and the next call tries again. From the first call on, librpm prints its messages and
/// notices to standard error. Only for the single thread of the program.
void ensureRpmConfig();

/// Configures librpm to judge packages for another system, for the rest of the process: RPM's macro files, of the
/// machine and of the user, are not read, and `database` is the database folder. Call it before any other function of
/// this folder. A failure is logged like that of ensureRpmConfig().
void configureForOtherSystem(const std::filesystem::path& database);

/// Makes the absolute path `folder` RPM's database folder for the rest of the process, in place of the configured one;
/// reads the configuration first. Call it before any lock is taken, because librpm looks up its lock file only once.
void setDatabaseFolder(const std::filesystem::path& folder);

/// The number of errors that librpm has reported in this process so far. Only this number shows that an iteration over
/// the database ended because the database is damaged.
int reportedErrors();

/// Whether the configuration was read.
bool isRpmConfigured();

} // namespace Common::Rpm
