// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry.h"

#include <string>
#include <vector>

/// The records that many processes write into one registry, and the records that a reader may find at any time. Each
/// writer has its own packages and key, so its records do not depend on other writers.
namespace Crowd {

using Records = std::vector<Core::KRV::RegistryRecord>;

constexpr int writerCount = 16;
constexpr int readerCount = 4;
constexpr int recordsOfEach = 200;

std::string writerName(int writer);

/// The records of a writer that are left after its first `count` records.
Records recordsAfter(const std::string& writer, int count);

/// The record of a writer at `position`.
Core::KRV::RegistryRecord recordAt(const std::string& writer, int position);

/// The records of a writer that are in the registry now. Throws if the registry cannot be read.
Records recordsOf(const std::string& writer);

} // namespace Crowd
