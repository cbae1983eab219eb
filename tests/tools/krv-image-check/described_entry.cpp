// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/described_entry.h"

#include "common/rpm/machine.h"
#include "tests/support/process/temp_directory.h"
#include "tests/support/signing/pki.h"
#include "tools/krv-image-check/image_checks.h"
#include "tools/krv-image-check/read_package.h"

#include <chrono>

namespace ImageCheckTest {

namespace fs = std::filesystem;

ImageCheck::Entry describedEntry(const std::string& name, const fs::path& path) {
  const Support::TempDirectory root;
  const fs::path directory = root / ImageCheck::preInstallDirectory;
  fs::create_directories(directory);
  fs::copy_file(path, directory / name);
  const ImageCheck::ImageTree image(root.path());
  const ImageCheck::PackageContext context{
      .image = image,
      .machine = Common::Rpm::Machine::current(),
      .caPath = Support::Pki::instance().trustedCa(),
      .hasAuthorities = true,
      .database = {},
      .at = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()),
      .areDatesChecked = true,
      .expiryMargin = std::chrono::days(90),
      .deep = true};
  return ImageCheck::readEntry(context, name).entry;
}

} // namespace ImageCheckTest
