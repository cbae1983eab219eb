// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_rules.h"
#include "core/registry_record.h"

#include <cstdint>
#include <span>

namespace Acceptance {

/// The record of an event of `package` at the time `now`. The time is later if it would not be later than that of all
/// `records` of the package. Throws Common::Error, Filesystem, if one of them has the latest possible time.
Core::KRV::RegistryRecord eventRecord(Core::KRV::RegistryRecord::Event event, const PackageIdentity& package,
                                      std::span<const Core::KRV::RegistryRecord> records, std::int64_t now);

} // namespace Acceptance
