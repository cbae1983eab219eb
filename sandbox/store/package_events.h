// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry_record.h"
#include "sandbox/store/stored_package.h"

#include <string>

/// The registry as the log of what has happened. All errors are Common::Error, Filesystem.
namespace Sandbox {

/// A record of `event` that the registry does not have yet: it is of now, or later if need be to be later than all
/// other records of the package.
Core::KRV::RegistryRecord newRecord(Core::KRV::RegistryRecord::Event event, const StoredPackage& package);

/// Whether the registry has a record with this line.
bool isRecorded(const std::string& line);

/// Writes the record down. When it throws the registry is as before.
void record(const Core::KRV::RegistryRecord& event);

} // namespace Sandbox
