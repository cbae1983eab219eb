// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/environment.h"
#include "tests/support/process/temp_directory.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Support {

/// What goes into a test package. The default is a small package with one file.
struct PackageInput {
  std::string name = "sample";
  std::string version = "1.0";
  std::string release = "1";
  /// Empty: that of the machine, or of the argument --target.
  std::string architecture = "noarch";
  /// Further lines of the preamble, for example "Epoch: 3".
  std::string preamble = {};
  /// The shell lines of %install.
  std::string install = "mkdir -p %{buildroot}/opt/%{name}; echo content > %{buildroot}/opt/%{name}/file";
  /// The lines of %files.
  std::string files = "/opt/%{name}";
  /// Further sections, and macro definitions ("%global ...") that are put at the top of the spec file.
  std::string sections = {};
  std::string globals = {};
  /// Further arguments of rpmbuild.
  std::vector<std::string> arguments = {};
  /// Whether the source package is what is wanted.
  bool isSource = false;
};

/// An RPM installation of its own for one test: while it lives, HOME is a folder whose .rpmmacros moves the database
/// into that folder, for this process and for its children. The machine's own database is never touched.
class RpmSandbox {
public:
  RpmSandbox();

  const std::filesystem::path& path() const { return m_directory.path(); }
  std::filesystem::path home() const { return m_directory / "home"; }
  std::filesystem::path database() const { return m_directory / "database"; }

  /// Builds a package with rpmbuild and puts it at `destination`, whose missing parents are made.
  void build(const PackageInput& input, const std::filesystem::path& destination) const;

private:
  TempDirectory m_directory;
  ScopedEnvironment m_home;
};

} // namespace Support
