// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/simulated_device.h"

#include <filesystem>
#include <string>

namespace ImageCheck {

/// The packages of RPM's database in the file tree of a device, and its registry. The developer of a package is that of
/// its newest record of an installation or an update; without one it is unknown. Packages without any record are left
/// out unless `isOffered` says that the image has them: they belong to the system. `copy` is a folder for a copy of the
/// database; it is created. Throws std::system_error if the tree, its database or its registry cannot be read.
SimulatedDevice readDevice(const std::string& tree, const std::filesystem::path& copy,
                           const std::function<bool(const std::string&)>& isOffered);

} // namespace ImageCheck
