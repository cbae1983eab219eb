// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/process.h"
#include "tests/support/process/scoped_mask.h"
#include "tests/support/signing/authority.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace ImageCheckTest {

using Lines = std::vector<std::string>;

/// An image without a mistake, in a temporary folder: x86_64, with an RPM database, the tool, and the package
/// "notes.rpm", signed by alice. Tests add mistakes.
class TestImage {
public:
  TestImage();

  std::filesystem::path root() const { return m_rpm.path() / "image"; }
  std::filesystem::path outside() const { return m_rpm.path(); }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return root() / name; }
  /// The path of an entry of the pre-install directory.
  std::filesystem::path entry(const std::string& name) const { return root() / directory / name; }
  const Support::RpmSandbox& rpm() const { return m_rpm; }

  /// Builds a package, signs it (unless `signer` is empty) with the earlier keys `previous`, oldest first, and puts it
  /// into the pre-install directory as NAME.rpm. Returns its path.
  std::filesystem::path add(const Support::PackageInput& input, const std::string& signer = "alice",
                            const std::vector<std::string>& previous = {}) const;

  /// An authority of its own, which the image trusts after trustAuthority().
  const Support::Authority& authority();
  void trustAuthority();
  /// Builds a package that a certificate of that authority signs.
  std::filesystem::path addSignedBy(const std::string& certificate, const Support::PackageInput& input);

  /// A copy of the image as it is now, which devices run.
  std::string copy(const std::string& name) const;

  /// Records a package in the image's RPM database.
  void install(const Support::PackageInput& input) const;

  /// Runs the program in the parent folder of the image, which has the name "image".
  Support::ProcessResult run(const std::vector<std::string>& options = {},
                             const Support::Environment& environment = {}) const;

  /// The lines about findings. Checks in passing that the JSON form of the same report fits its schema and has as many
  /// findings.
  Lines findings(const std::vector<std::string>& options = {}) const;

  static constexpr const char* directory = "usr/share/krv/pre-install-apps";

private:
  Support::ScopedMask m_mask{022};
  Support::RpmSandbox m_rpm;
  std::unique_ptr<Support::Authority> m_authority;
};

/// Writes a program for a machine of elf.h, with only its header.
void writeProgram(const std::filesystem::path& path, std::uint16_t machine);

/// Changes one byte of a file, counted from its end.
void flipByte(const std::filesystem::path& path, std::size_t fromEnd);

/// Throws with the reason unless `json` fits docs/image-check.schema.json.
void validate(const std::string& json);

} // namespace ImageCheckTest
