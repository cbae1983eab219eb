// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"

#include <filesystem>
#include <string>

/// Why tests with tokens cannot run here; empty if they can.
std::string missingForTokens();

/// Makes an empty folder for tokens of SoftHSM below `folder`. Returns the environment in which SoftHSM and OpenSSL's
/// provider use it.
Support::Environment environmentForTokens(const std::filesystem::path& folder);
