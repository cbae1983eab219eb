// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "driver/decision.h"

#include <filesystem>

/// Reads what the decision needs from a package file, symlinks followed. Does not verify the signatures: the service
/// does so when it installs the package. Throws Common::Error: the errors of Common::Rpm::Reader,
/// Common::readPackageCmses() and Common::developerIdentity().
PackageFacts readPackageFacts(const std::filesystem::path& path);
