// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/posix/file_descriptor.h"
#include "common/rpm/machine.h"
#include "tools/krv-image-check/findings.h"
#include "tools/krv-image-check/image_tree.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace ImageCheck {

/// The input of the checks of one package.
struct PackageContext {
  const ImageTree& image;
  std::optional<Common::Rpm::Machine> machine; ///< nothing if the architecture of the device is not known
  std::string caPath;                          ///< the directory of the trusted authorities
  bool hasAuthorities;                         ///< whether that directory can be used
  std::filesystem::path database;              ///< the folder of RPM's database, for its OpenPGP keys
  std::chrono::sys_seconds at;
  bool areDatesChecked; ///< false for an image that devices booted when its certificates were valid
  std::chrono::days expiryMargin;
  bool deep;
};

/// An entry of the pre-install directory, and its findings.
struct EntryReport {
  Entry entry;
  Findings findings = {};
  bool breaksListing = false;      ///< whether the entry makes the listing of the directory fail on the device
  std::uint64_t installedSize = 0; ///< of the package's files in bytes
};

/// Opens the entry `name` once and judges the entry and the package in it. Call it in a worker process: librpm prints
/// on standard error, and a bad package may end the process.
EntryReport readEntry(const PackageContext& context, const std::string& name);

} // namespace ImageCheck
