// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry.h"

#include <string>
#include <vector>

/// What many processes write into one registry, and what may be read at any time. Each writer has packages and a key of
/// its own, so that its records depend on nobody else's.
namespace Crowd {

using Records = std::vector<Core::KRV::RegistryRecord>;

constexpr int writerCount = 16;
constexpr int readerCount = 4;
constexpr int recordsOfEach = 200;

std::string writerName(int writer);

/// The records of a writer that stay when it has written its first `count` ones.
Records recordsAfter(const std::string& writer, int count);

/// The record that follows them.
Core::KRV::RegistryRecord recordAt(const std::string& writer, int position);

/// The records of a writer among all that are in the registry now. Throws when the registry cannot be read.
Records recordsOf(const std::string& writer);

} // namespace Crowd
