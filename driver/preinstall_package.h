// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"
#include "service/krv_proxy.h"

#include <filesystem>
#include <optional>
#include <vector>

enum class PreinstallOutcome {
  Skipped,       ///< not offered to the service; the reason is in the log
  Installed,     ///< the service installed it
  InstallFailed, ///< the service refused it; its error is in the log
};

/// The Remove records of the package event registry, in file order; other records do not change a decision. The
/// registry is read at most once per run. Empty until a read has succeeded.
using RegistryCache = std::optional<std::vector<Core::KRV::RegistryRecord>>;

/// Reads the package at `packagePath`, decides whether to install it, and if so asks the service to install it, which
/// blocks for at most 300 seconds. For the first package that is not installed it reads the registry into
/// `registryCache`, which blocks until the registry's lock is free.
/// Errors of the package are logged and not thrown. Throws Common::Error, Filesystem, if the registry's folder cannot
/// be created: without the user's removals the run must not continue.
PreinstallOutcome preinstallPackage(KrvProxy& proxy, const std::filesystem::path& packagePath,
                                    RegistryCache& registryCache);
