// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/configuration.h"

#include "common/rpm/handles.h"
#include "driver/log/log_message.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmlog.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmts.h>

#include <cstdio>
#include <string>

namespace Common::Rpm {

namespace {

bool configured = false;

} // namespace

void ensureRpmConfig() {
  if (configured)
    return;
  // By default librpm's notices, an %{echo:} in a macro file for example, would get between the lines of the log.
  rpmlogSetFile(stderr);
  configured = rpmReadConfigFiles(nullptr, nullptr) == 0;
  if (!configured)
    LogMessage(LogLevel::Warning) << "Couldn't read RPM configuration files";
}

bool isRpmConfigured() {
  return configured;
}

void setDatabaseFolder(const std::filesystem::path& folder) {
  ensureRpmConfig();
  std::string body;
  for (const char character : folder.string()) {
    body += character;
    if (character == '%') // it would begin the name of another macro
      body += character;
  }
  rpmPushMacro(nullptr, "_dbpath", nullptr, body.c_str(), RMIL_CMDLINE);
}

bool makeDatabase() {
  return rpmtsInitDB(ownTransactionSet(rpmtsCreate()).get(), 0644) == 0;
}

} // namespace Common::Rpm
