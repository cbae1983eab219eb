// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/configuration.h"

#include "driver/log/log_message.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmlog.h>

#include <cstdio>

namespace Common::Rpm {

namespace {

bool configured = false;

} // namespace

void ensureRpmConfig() {
  if (configured)
    return;
  // By default librpm prints its notices (for example of an %{echo:} in a macro file) to standard output, between the
  // log lines.
  rpmlogSetFile(stderr);
  configured = rpmReadConfigFiles(nullptr, nullptr) == 0;
  if (!configured)
    LogMessage(LogLevel::Warning) << "Couldn't read RPM configuration files";
}

bool isRpmConfigured() {
  return configured;
}

} // namespace Common::Rpm
