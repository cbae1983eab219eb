// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"

#include <string>

namespace ImageCheck {

/// RPM's name for the architecture of an ELF file; empty for any other file, for one of an unknown architecture, and
/// without a descriptor.
std::string architectureOfProgram(const Common::Posix::FileDescriptor& file);

} // namespace ImageCheck
