// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"
#include "tools/krv-image-check/findings.h"
#include "tools/krv-image-check/image_tree.h"

#include <string>

namespace ImageCheck {

/// An entry of the pre-install directory as it was opened once.
struct OpenedEntry {
  /// The regular file, open for reading; none if the tool cannot read the entry or this process cannot.
  Common::Posix::FileDescriptor file;
  bool breaksListing = false; ///< whether the entry makes the listing of the directory fail on the device
  Findings findings;
};

/// Opens the entry `name` and judges everything but its content.
OpenedEntry openEntry(const ImageTree& image, const std::string& name);

} // namespace ImageCheck
