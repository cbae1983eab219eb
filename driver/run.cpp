// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/run.h"

#include "common/error/error.h"
#include "common/filesystem/listing.h"
#include "common/filesystem/root.h"
#include "driver/log/messages.h"
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
    logLine<Message::ErrorText>(error.what());
    logLine<Message::NoList>();
    return std::nullopt;
  }
}

void logOutcome(PreinstallOutcome outcome, const std::filesystem::path& path) {
  switch (outcome) {
  case PreinstallOutcome::Installed:
    logLine<Message::Installed>(path);
    break;
  case PreinstallOutcome::InstallFailed:
    logLine<Message::InstallFailed>(path);
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
    logLine<Message::NoProxy>();
    return EXIT_FAILURE;
  }
  const std::optional<Paths> packages = listPackages();
  if (!packages)
    return EXIT_FAILURE;
  preinstallAll(*proxy, *packages);
  return EXIT_SUCCESS;
}
