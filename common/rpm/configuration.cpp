// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/configuration.h"

#include "driver/log/messages.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmlog.h>
#include <rpm/rpmmacro.h>

#include <cstdio>
#include <string>

namespace Common::Rpm {

namespace {

bool configured = false;

void readConfiguration(const char* files) {
  // By default librpm prints its notices (for example of an %{echo:} in a macro file) to standard output, between the
  // log lines.
  rpmlogSetFile(stderr);
  configured = rpmReadConfigFiles(files, nullptr) == 0;
  if (!configured)
    logLine<Message::NoRpmConfiguration>();
}

void setMacro(const char* name, const std::string& value) {
  rpmPushMacro(nullptr, name, nullptr, value.c_str(), RMIL_CMDLINE);
}

} // namespace

void ensureRpmConfig() {
  if (!configured)
    readConfiguration(nullptr);
}

void configureForOtherSystem(const std::filesystem::path& database) {
  static char noFiles[] = "";
  macrofiles = noFiles;
  readConfiguration((std::string(rpmConfigDir()) + "/rpmrc").c_str());
  setMacro("_db_backend", "sqlite");
  setMacro("_keyring", "rpmdb");
  setMacro("_rpmlock_path", "%{_dbpath}/.rpm.lock");
  setMacro("__plugindir", "/dev/null");   // without it librpm looks for plugins in the working directory
  setMacro("_pkgverify_level", "digest"); // librpm's default
  setDatabaseFolder(database);
}

void setDatabaseFolder(const std::filesystem::path& folder) {
  ensureRpmConfig();
  std::string body;
  for (const char character : folder.string()) {
    body += character;
    if (character == '%') // "%" would start a macro
      body += character;
  }
  setMacro("_dbpath", body);
}

int reportedErrors() {
  return rpmlogGetNrecsByMask(RPMLOG_UPTO(RPMLOG_ERR));
}

bool isRpmConfigured() {
  return configured;
}

} // namespace Common::Rpm
