// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_content.h"
#include "sandbox/store/change_plan.h"
#include "sandbox/store/directory.h"

namespace Sandbox {

/// The packages that a plan has to go by.
struct Ownership {
  const Acceptance::PackagedFiles& earlier; ///< of the installed version of the package itself
  const Acceptance::PackagedFiles& others;  ///< of all other packages
};

/// What the installation of `files` changes under `root`, where nothing that is not the package's own is touched and
/// no link is passed through. Throws Common::Error, FileConflict, when that cannot be. A number of a change that adds
/// or replaces is the index of the file in its package.
ChangePlan planInstallation(const Directory& root, const Acceptance::PackagedFiles& files, const Ownership& ownership);

/// What the removal of the package whose files are `ownership.earlier` changes under `root`. What others own as well
/// stays, and so does what is something else by now than the package says.
ChangePlan planRemoval(const Directory& root, const Ownership& ownership);

} // namespace Sandbox
