// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "sandbox/store/package_store.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/temp_directory.h"
#include "tools/krv-image-check/model.h"

#include <filesystem>
#include <string>

namespace ImageCheckTest {

/// The root of a device with the reference service's store. What the tool would do with an entry is done here with its
/// own functions, without a bus.
class RealRoot {
public:
  RealRoot();

  std::filesystem::path path() const { return m_directory.path(); }

  /// Lets the tool and the service handle the package file `path` as the entry `name`, and returns the result.
  ImageCheck::Row take(const std::string& name, const std::filesystem::path& path);
  /// Removes a package if it is installed.
  void remove(const std::string& name);

  /// The installed packages with versions and keys, one per line.
  std::string installed() const;
  /// The same as the report has it.
  std::string reported() const;
  /// The registry without timestamps.
  std::string registry() const;

private:
  Support::TempDirectory m_directory;
  Support::ScopedEnvironment m_root;
  Sandbox::PackageStore m_store;
};

} // namespace ImageCheckTest
