// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"
#include "common/rpm/transaction.h"

#include <rpm/rpmts.h>

#include <filesystem>

namespace Sandbox {

/// Makes the absolute path `folder` RPM's database folder for the rest of the process, in place of the configured one;
/// reads the configuration first. Call it before any lock is taken, because librpm looks up its lock file only once.
void setDatabaseFolder(const std::filesystem::path& folder);

/// Creates RPM's database, or the tables that it lacks. False after librpm's own lines with the reason.
bool createDatabase();

/// For Common::Rpm::RpmTransaction::addFlags(): run() changes only the database. No file is changed; no script, trigger
/// or plugin runs.
inline constexpr rpmtransFlags databaseOnly = RPMTRANS_FLAG_JUSTDB | RPMTRANS_FLAG_NOSCRIPTS | _noTransScripts |
                                              RPMTRANS_FLAG_NOTRIGGERS | _noTransTriggers | RPMTRANS_FLAG_NOPLUGINS;

/// Adds a package to the database immediately, without its files and scripts, also if one with the same name exists.
/// The lock of `transaction` must be a write lock. Throws Common::Error: Internal "Couldn't record package in the RPM
/// database".
void addToDatabase(const Common::Rpm::RpmTransaction& transaction, const Common::Rpm::Reader& package);

/// The number of errors that librpm has reported in this process so far. Only this number shows that an iteration ended
/// because the database is damaged.
int reportedErrors();

} // namespace Sandbox
