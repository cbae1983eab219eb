// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "driver/decision.h"

#include <filesystem>

/// The facts about the package file at `path`, symlinks followed. Its signatures are not verified: the service does
/// that when it installs. Throws Common::Error, with the errors of Common::Rpm::Reader, Common::readPackageCmses() and
/// Common::developerIdentity().
PackageFacts readPackageFacts(const std::filesystem::path& path);
