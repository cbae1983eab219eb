// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"
#include "tools/krv-image-check/simulated_device.h"

#include <optional>
#include <string>
#include <vector>

namespace ImageCheck {

/// The pre-install directory of an image.
struct ImageContent {
  std::string name; ///< as given on the command line
  std::vector<Entry> entries;
  bool isListable = true; ///< false if a dangling symlink makes the listing fail, so that the tool installs nothing
};

struct SimulationInput {
  ImageContent image;
  std::vector<ImageContent> previous;
  std::vector<std::string> removed; ///< names of packages that the user has removed before the boot of the image
  std::optional<SimulatedDevice> device = {};
  /// The entries of the image's root that no package of the pre-install directory owns.
  Acceptance::Root root = {};
};

/// One scenario: the device that boots the image, and what it does.
struct Simulation {
  Scenario scenario; ///< the entries are taken by name
  Scenario reversed; ///< the same with the entries taken in the reverse order, if two packages have one name
  std::vector<InstalledState> before;
  std::vector<Core::KRV::RegistryRecord> recordsBefore;
  const ImageContent* previous; ///< the image that the device booted before, or null
};

/// "first-boot", "update:NAME" for each previous image, and "device" if there is one. The simulations refer to `input`.
std::vector<Simulation> simulate(const SimulationInput& input);

/// Whether two readable packages of the image have the same name.
bool hasDuplicateNames(const ImageContent& image);

} // namespace ImageCheck
