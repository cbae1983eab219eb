// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/package_content.h"
#include "common/rpm/reader.h"

#include <vector>

namespace Sandbox {

/// The files of database entries, including entries of other programs. Throws like Acceptance::fileList().
Acceptance::PackagedFiles filesOf(const std::vector<Common::Rpm::Reader>& entries);

} // namespace Sandbox
