// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"
#include "sandbox/store/stored_package.h"

#include <string>

/// The registry as the record of the package events. All errors are Common::Error, Filesystem.
namespace Sandbox {

/// A record of `event` that is not in the registry yet. Its time is now, or later if it would not be later than all
/// other records of the package.
Core::KRV::RegistryRecord newRecord(Core::KRV::RegistryRecord::Event event, const StoredPackage& package);

/// Whether the registry contains this line. Throws, after an error line, if the registry exists and cannot be read.
bool isRecorded(const std::string& line);

/// Writes the record. If it throws, the registry is unchanged.
void record(const Core::KRV::RegistryRecord& event);

} // namespace Sandbox
