// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"
#include "tools/krv-image-check/findings.h"
#include "tools/krv-image-check/read_package.h"

#include <string>
#include <vector>

/// The form in which worker processes send their results. Both sides are the same program.
namespace ImageCheck {

std::string pack(const EntryReport& report);
EntryReport unpackEntry(const std::string& bytes);

/// The packages and the registry of a device.
struct DeviceContent {
  std::vector<Package> packages; ///< only name, full version and files
  std::vector<Core::KRV::RegistryRecord> records;
};

std::string pack(const DeviceContent& device);
DeviceContent unpackDevice(const std::string& bytes);

std::string pack(const Findings& findings);
Findings unpackFindings(const std::string& bytes);

} // namespace ImageCheck
