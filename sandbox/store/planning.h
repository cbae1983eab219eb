// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_content.h"
#include "acceptance/placement.h"
#include "sandbox/store/change_plan.h"
#include "sandbox/store/directory.h"

namespace Sandbox {

/// The file changes of Acceptance::placeFiles() under `root`, with its errors.
ChangePlan planInstallation(const Directory& root, const Acceptance::PackagedFiles& files,
                            const Acceptance::Ownership& ownership);

/// The file changes of Acceptance::removeFiles() under `root`.
ChangePlan planRemoval(const Directory& root, const Acceptance::Ownership& ownership);

} // namespace Sandbox
