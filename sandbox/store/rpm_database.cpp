// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/rpm_database.h"

#include "common/error/error.h"
#include "common/rpm/configuration.h"
#include "common/rpm/handles.h"

#include <rpm/rpmlog.h>
#include <rpm/rpmmacro.h>

#include <string>

namespace Sandbox {

void setDatabaseFolder(const std::filesystem::path& folder) {
  Common::Rpm::ensureRpmConfig();
  std::string body;
  for (const char character : folder.string()) {
    body += character;
    if (character == '%') // "%" would start a macro
      body += character;
  }
  rpmPushMacro(nullptr, "_dbpath", nullptr, body.c_str(), RMIL_CMDLINE);
}

bool createDatabase() {
  return rpmtsInitDB(Common::Rpm::ownTransactionSet(rpmtsCreate()).get(), 0644) == 0;
}

void addToDatabase(const Common::Rpm::RpmTransaction& transaction, const Common::Rpm::Reader& package) {
  if (rpmtsImportHeader(transaction.lock().get(), package.header().get(), 0) != RPMRC_OK)
    throw Common::Error(Common::ErrorCode::Internal, "Couldn't record package in the RPM database");
}

int reportedErrors() {
  return rpmlogGetNrecsByMask(RPMLOG_UPTO(RPMLOG_ERR));
}

} // namespace Sandbox
