// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error_code.h"
#include "common/posix/file_descriptor.h"
#include "tools/krv-image-check/findings.h"
#include "tools/krv-image-check/read_package.h"

#include <optional>
#include <string>

namespace ImageCheck {

/// The result of checking the signatures of a package.
struct SignatureReport {
  std::string sha256; ///< of the whole file; empty if it cannot be read
  std::optional<Developer> developer;
  std::optional<Common::ErrorCode> refusal; ///< with which the reference service refuses the signatures
  Findings findings;
};

/// Reads the whole file once: for its digest and to verify its signatures.
SignatureReport checkSignatures(const PackageContext& context, const std::string& entry,
                                const Common::Posix::FileDescriptor& file);

} // namespace ImageCheck
