// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/reader.h"
#include "common/rpm/transaction.h"

#include <rpm/rpmts.h>

namespace Sandbox {

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

} // namespace Sandbox
