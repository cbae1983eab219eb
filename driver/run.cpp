// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/run.h"

#include "common/error/error.h"
#include "common/filesystem/listing.h"
#include "common/filesystem/root.h"
#include "driver/log/log_message.h"
#include "driver/preinstall_package.h"
#include "driver/run_timer.h"

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <vector>

namespace {

using Paths = std::vector<std::filesystem::path>;

std::optional<Paths> listPackages() {
  try {
    const std::filesystem::path directory = Common::Filesystem::rootDirectory() / "usr/share/krv/pre-install-apps";
    return Common::Filesystem::listDirectory(directory, Common::Filesystem::ListOptions::None);
  } catch (const Common::Error& error) {
    LogMessage(LogLevel::Error) << error.what();
    LogMessage(LogLevel::Error) << "Failed to get a list of packages to pre-install";
    return std::nullopt;
  }
}

void logOutcome(PreinstallOutcome outcome, const std::filesystem::path& path) {
  switch (outcome) {
  case PreinstallOutcome::Installed:
    LogMessage(LogLevel::Info) << "The package successfully pre-installed: " << path;
    break;
  case PreinstallOutcome::InstallFailed:
    LogMessage(LogLevel::Error) << "Failed to pre-install package: " << path;
    break;
  case PreinstallOutcome::Skipped:
    break;
  }
}

void preinstallAll(KrvProxy& proxy, const Paths& packages) {
  const RunTimer timer;
  RegistryCache registryCache;
  for (const std::filesystem::path& package : packages)
    logOutcome(preinstallPackage(proxy, package, registryCache), package);
}

} // namespace

int run() {
  std::optional<KrvProxy> proxy = KrvProxy::create();
  if (!proxy) {
    LogMessage(LogLevel::Error) << "Failed to create dbus proxy for KRV service";
    return EXIT_FAILURE;
  }
  const std::optional<Paths> packages = listPackages();
  if (!packages)
    return EXIT_FAILURE;
  preinstallAll(*proxy, *packages);
  return EXIT_SUCCESS;
}
