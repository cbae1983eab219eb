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

/// The facts about a package file that the decision needs.
struct PackageFacts {
  std::string name;
  std::string version; ///< version and release joined with "-"; the epoch is not compared
  Common::DeveloperIdentity developer;
};

enum class Reason {
  NotInstalled,      ///< install it
  Update,            ///< install it over the installed one
  RemovedByUser,     ///< skip it: the user removed it while it was signed by the same developer
  NotNewer,          ///< skip it
  DeveloperMismatch, ///< skip it: the installed package is from another developer
};

struct Verdict {
  Reason reason;
  /// The result of comparing the versions, for an installed package. Versions that cannot be compared do not block an
  /// update.
  std::optional<Common::Rpm::VersionComparison> comparison = {};

  bool isInstallationDue() const { return reason == Reason::NotInstalled || reason == Reason::Update; }
};

/// Decides whether to offer a package of the pre-install directory to the service. `installed` is the installed package
/// with the same name, or nothing. The registry's `records` matter only for a package that is not installed. A pure
/// function: no input, output or log lines.
Verdict decide(const PackageFacts& package, const std::optional<InstalledPackage>& installed,
               std::span<const Core::KRV::RegistryRecord> records);
