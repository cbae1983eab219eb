// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/version.h"
#include "common/signatures/developer_identity.h"
#include "core/registry_record.h"
#include "service/installed_package.h"

#include <optional>
#include <span>
#include <string>

/// What the decision needs to know of a package file.
struct PackageFacts {
  std::string name;
  std::string version; ///< version and release joined with "-"; the epoch plays no part
  Common::DeveloperIdentity developer;
};

enum class Reason {
  NotInstalled,      ///< install it
  Update,            ///< install it over what is there
  RemovedByUser,     ///< skip it: the user removed it while it was signed by the same developer
  NotNewer,          ///< skip it
  DeveloperMismatch, ///< skip it: what is installed comes from another developer
};

struct Verdict {
  Reason reason;
  /// What comparing the versions gave, for an installed package. Versions that cannot be compared do not block an
  /// update.
  std::optional<Common::Rpm::VersionComparison> comparison = {};

  bool isInstallationDue() const { return reason == Reason::NotInstalled || reason == Reason::Update; }
};

/// Decides whether a package of the pre-install directory is to be offered to the service, from what is `installed`
/// under its name (nothing: not installed) and from the registry's `records`, which matter only when it is not
/// installed. Pure: no input or output, and no log.
Verdict decide(const PackageFacts& package, const std::optional<InstalledPackage>& installed,
               std::span<const Core::KRV::RegistryRecord> records);
