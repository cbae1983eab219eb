// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_rules.h"
#include "core/registry_record.h"
#include "tools/krv-image-check/model.h"
#include "tools/krv-image-check/simulated_device.h"

#include <string>
#include <vector>

/// Texts by which a plan is compared with a device. Each has one line per item.
namespace ImageCheckTest {

std::string textOf(const Acceptance::PackageIdentity& package);
/// In their order, without timestamps.
std::string textOf(const std::vector<Core::KRV::RegistryRecord>& records);
std::string textOf(const std::vector<ImageCheck::Row>& rows);
std::string textOf(const std::vector<ImageCheck::InstalledState>& state);
/// The packages of a simulated device, like those of a real one.
std::string installedOn(const ImageCheck::SimulatedDevice& device);

} // namespace ImageCheckTest
