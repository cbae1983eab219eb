// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"
#include "common/rpm/transaction.h"

#include <rpm/rpmts.h>

#include <filesystem>

namespace Sandbox {

/// Makes the absolute `folder` the place of RPM's database for the rest of the process, over what the configuration
/// says, which is read first. librpm finds the place of its lock file once: to be called before anything is locked.
void setDatabaseFolder(const std::filesystem::path& folder);

/// For Common::Rpm::RpmTransaction::addFlags(): its run() changes the database and nothing else. No file is touched; no
/// script, trigger or plugin runs.
inline constexpr rpmtransFlags databaseOnly = RPMTRANS_FLAG_JUSTDB | RPMTRANS_FLAG_NOSCRIPTS | _noTransScripts |
                                              RPMTRANS_FLAG_NOTRIGGERS | _noTransTriggers | RPMTRANS_FLAG_NOPLUGINS;

/// Adds a package to the database at once, without its files and scripts and beside any other of its name. The lock of
/// `transaction` must be one for writing. Throws Common::Error: Internal "Couldn't record package in the RPM database".
void addToDatabase(const Common::Rpm::RpmTransaction& transaction, const Common::Rpm::Reader& package);

/// How many errors librpm has reported in this process so far. A walk over a database that turns out to be damaged ends
/// like any other; this is the one place where the difference shows.
int reportedErrors();

} // namespace Sandbox
