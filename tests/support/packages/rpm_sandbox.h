// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/environment.h"
#include "tests/support/process/temp_directory.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Support {

/// The input of a test package. The default is a small package with one file.
struct PackageInput {
  std::string name = "sample";
  std::string version = "1.0";
  std::string release = "1";
  /// Empty: the machine's, or the one in the argument --target.
  std::string architecture = "noarch";
  /// Further lines of the preamble, for example "Epoch: 3".
  std::string preamble = {};
  /// The shell lines of %install.
  std::string install = "mkdir -p %{buildroot}/opt/%{name}; echo content > %{buildroot}/opt/%{name}/file";
  /// The lines of %files.
  std::string files = "/opt/%{name}";
  /// Further sections, and macro definitions ("%global ...") for the top of the spec file.
  std::string sections = {};
  std::string globals = {};
  /// Further arguments of rpmbuild.
  std::vector<std::string> arguments = {};
  /// Whether to build the source package.
  bool isSource = false;
};

/// An RPM installation for one test. While it lives, HOME is a temporary folder whose .rpmmacros puts the database into
/// that folder, for this process and its children. The machine's database is not used. librpm reads .rpmmacros only
/// once in a process, so the newest sandbox also tells it its database directly.
class RpmSandbox {
public:
  RpmSandbox();

  const std::filesystem::path& path() const { return m_directory.path(); }
  std::filesystem::path home() const { return m_directory / "home"; }
  std::filesystem::path database() const { return m_directory / "database"; }

  /// Builds a package with rpmbuild and stores it as `destination`, whose missing parents are created.
  void build(const PackageInput& input, const std::filesystem::path& destination) const;

private:
  TempDirectory m_directory;
  ScopedEnvironment m_home;
};

} // namespace Support
