// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/packages/rpm_sandbox.h"

#include "tests/support/process/process.h"

#include <rpm/rpmmacro.h>

#include <stdexcept>

namespace Support {

namespace {

std::string specFile(const PackageInput& input) {
  return input.globals + "\nName: " + input.name + "\nVersion: " + input.version + "\nRelease: " + input.release +
         "\nSummary: A test package\nLicense: MIT\n" +
         (input.architecture.empty() ? "" : "BuildArch: " + input.architecture + "\n") + input.preamble +
         "\n%description\nA test package.\n%install\n" + input.install + "\n%files\n" + input.files + "\n" +
         input.sections + "\n";
}

} // namespace

RpmSandbox::RpmSandbox() : m_home("HOME", home().string()) {
  writeFile(home() / ".rpmmacros", "%_dbpath " + database().string() + "\n%_topdir " + (path() / "build").string() +
                                       "\n%_build_name_fmt package.rpm\n");
  rpmDefineMacro(nullptr, ("_dbpath " + database().string()).c_str(), 0);
}

void RpmSandbox::build(const PackageInput& input, const std::filesystem::path& destination) const {
  const std::filesystem::path folder = path() / "build";
  writeFile(folder / "package.spec", specFile(input));
  std::vector<std::string> command = {"rpmbuild", input.isSource ? "-bs" : "-bb", "--quiet"};
  command.insert(command.end(), input.arguments.begin(), input.arguments.end());
  command.push_back((folder / "package.spec").string());
  runOrThrow(command);
  const std::filesystem::directory_iterator built(folder / (input.isSource ? "SRPMS" : "RPMS"));
  std::filesystem::create_directories(std::filesystem::absolute(destination).parent_path());
  std::filesystem::copy_file(built->path(), destination, std::filesystem::copy_options::overwrite_existing);
  std::filesystem::remove_all(folder);
}

} // namespace Support
