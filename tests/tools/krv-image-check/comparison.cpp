// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/comparison.h"

#include "tools/krv-image-check/summary.h"

namespace ImageCheckTest {

std::string textOf(const Acceptance::PackageIdentity& package) {
  std::string text = package.name + " " + package.version + " " + package.developer.keyId;
  for (const std::string& previous : package.developer.previousKeyIds)
    text += " after " + previous;
  return text + "\n";
}

std::string textOf(const std::vector<Core::KRV::RegistryRecord>& records) {
  std::string text;
  for (Core::KRV::RegistryRecord record : records) {
    record.timestamp = 0;
    text += Core::KRV::toString(record) + "\n";
  }
  return text;
}

std::string textOf(const std::vector<ImageCheck::Row>& rows) {
  std::string text;
  for (const ImageCheck::Row& row : rows)
    text += row.entry + " " + row.name + " " + std::string(ImageCheck::nameOf(row.action)) + " " + row.reason + "\n";
  return text;
}

std::string textOf(const std::vector<ImageCheck::InstalledState>& state) {
  std::string text;
  for (const ImageCheck::InstalledState& package : state)
    text += package.name + " " + package.version + " " + package.keyId + "\n";
  return text;
}

std::string installedOn(const ImageCheck::SimulatedDevice& device) {
  std::string text;
  for (const auto& [name, package] : device.installed())
    text += textOf(package.identity);
  return text;
}

} // namespace ImageCheckTest
