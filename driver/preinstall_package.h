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

/// The records of the package-event registry in the order of the file, but only the removals, because nothing else
/// decides; records of other kinds that a caller puts there change nothing. The registry is read at most once per run;
/// empty until a read has succeeded.
using RegistryCache = std::optional<std::vector<Core::KRV::RegistryRecord>>;

/// Reads the package at `packagePath`, decides whether it is due, and if so has the service install it, which may
/// block for as long as the service takes (at most 300 seconds). Fills `registryCache` for the first package that is
/// not installed; that waits for the registry's lock.
/// Nothing about the package escapes as an exception. A registry whose folder cannot be made does: Common::Error with
/// Filesystem, because a run that cannot know what the user removed must not go on as if nothing had been.
PreinstallOutcome preinstallPackage(KrvProxy& proxy, const std::filesystem::path& packagePath,
                                    RegistryCache& registryCache);
