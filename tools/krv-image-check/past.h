// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"
#include "tools/krv-image-check/simulation.h"

#include <vector>

namespace ImageCheck {

/// The findings duplicate-name, downgrade, rebuilt-same-version, developer-changed, rotation-shortened, package-dropped
/// and removed-returns. `simulations` are those of `input`. One finding per id and package, whatever the number of
/// scenarios that have it; "package" and "scenarios" of its data name them.
std::vector<Finding> findingsAboutThePast(const SimulationInput& input, const std::vector<Simulation>& simulations);

/// For each package of unknown developer on the device a check that could not be made.
std::vector<NotChecked> unknownDevelopers(const std::vector<Simulation>& simulations);

} // namespace ImageCheck
