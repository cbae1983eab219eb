// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_content.h"
#include "sandbox/store/change_plan.h"
#include "sandbox/store/directory.h"

namespace Sandbox {

/// The files of the installed packages.
struct Ownership {
  const Acceptance::PackagedFiles& earlier; ///< of the installed version of the package itself
  const Acceptance::PackagedFiles& others;  ///< of all other packages
};

/// The changes under `root` to install `files`. They touch only the package's own files and follow no symlink. Throws
/// Common::Error, FileConflict, if that is impossible. The number of an added or replaced file is its index in the
/// package.
ChangePlan planInstallation(const Directory& root, const Acceptance::PackagedFiles& files, const Ownership& ownership);

/// The changes under `root` to remove the package with the files `ownership.earlier`. These stay: entries that other
/// packages own too, a directory in the place of a file or symlink, and a file or symlink in the place of a directory.
ChangePlan planRemoval(const Directory& root, const Ownership& ownership);

} // namespace Sandbox
