// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/real_device.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/signing/pki.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

#include <functional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// The errors of an installation on a device. Version 1.0 of "sample" is installed, signed by alice-2, whose earlier
/// key is alice.
class BusError : public testing::Test {
protected:
  BusError() {
    const fs::path path = package({});
    Support::sign(path, "alice-2", {"alice"});
    m_device.client().install(path);
  }

  /// An unsigned package.
  fs::path package(const Support::PackageInput& input) {
    const fs::path path = m_device.rpm().path() / "package.rpm";
    m_device.rpm().build(input, path);
    return path;
  }

  fs::path package(const Support::PackageInput& input, const std::string& developer) {
    const fs::path path = package(input);
    Support::sign(path, developer);
    return path;
  }

  fs::path packageWith(rpmTagVal tag, const std::string& text) {
    const fs::path path = package({.name = "other"});
    Support::changeHeader(path, [&](Header header) {
      headerDel(header, tag);
      headerPutString(header, tag, text.c_str());
    });
    Support::sign(path, "bob");
    return path;
  }

  std::string installationError(const fs::path& path) {
    return busErrorOf([&] { m_device.client().install(path); });
  }

  /// Expects this D-Bus name and message, and that the failed call changes nothing.
  void expectRefused(const fs::path& path, const std::string& error) {
    const std::string database = m_device.database();
    const std::string events = m_device.events();
    EXPECT_EQ(installationError(path), "velta.KRV.Error." + error);
    EXPECT_EQ(m_device.database(), database);
    EXPECT_EQ(m_device.events(), events);
    EXPECT_THAT(m_device.client().installed(), testing::ElementsAre("sample 1.0-1"));
  }

  RealDevice m_device;
};

TEST_F(BusError, NamesTheFaultOfTheFile) {
  const fs::path path = m_device.rpm().path() / "none.rpm";
  expectRefused(path, "FileNotFound: The package is not an existing regular file: " + path.string());
  Support::writeFile(path, "no package");
  expectRefused(path, "BadPackageFileFormat: Couldn't read rpm package");
}

TEST_F(BusError, NamesTheFaultOfTheSignatures) {
  const Support::PackageInput other{.name = "other"};
  expectRefused(package(other), "MissingDeveloperSignature: Package doesn't have developer certificate");
  expectRefused(package(other, "foreign"),
                "IllegalDeveloperCertificate: Package is signed with a non-legal developer certificate");
  const fs::path path = package(other, "alice");
  Support::sign(path, "foreign-source");
  expectRefused(path, "IllegalSourceCertificate: Package is signed with a non-legal source certificate");
  package(other, "alice");
  std::string bytes = Support::readFile(path);
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  Support::writeFile(path, bytes);
  expectRefused(path, "SignatureVerificationFailed: Package signature verification failed");
}

TEST_F(BusError, NamesTheFaultOfTheUpdate) {
  expectRefused(package({}, "alice-2"),
                "SamePackageIsInstalled: This version of the package is installed: sample 1.0-1 over 1.0-1");
  expectRefused(package({.version = "0.9"}, "alice-2"),
                "DowngradeAttempt: A newer version of the package is installed: sample 0.9-1 over 1.0-1");
  expectRefused(package({.version = "2.0"}, "bob"),
                "DeveloperMismatch: The installed package is from another developer: sample");
  expectRefused(package({.version = "2.0"}, "alice"),
                "DeveloperKeySuperseded: The installed package is signed with a newer key of its developer: sample");
}

TEST_F(BusError, NamesTheFaultOfTheHeader) {
  expectRefused(packageWith(RPMTAG_NAME, "a name"),
                "BadPackageID: The package has a name that cannot be used: 'a name'");
  expectRefused(packageWith(RPMTAG_VERSION, "1-2"),
                "BadPackageVersion: The package has an invalid version or release: '1-2'");
  expectRefused(packageWith(RPMTAG_ARCH, "m68k"),
                "BadPackageArchitecture: The package is for another architecture: m68k");
}

/// The bus refuses a message that is not UTF-8: without the "?" the client would get no answer.
TEST_F(BusError, QuotesATextThatIsNotUtf8) {
  expectRefused(packageWith(RPMTAG_ARCH, "m68 \xff\xc3\xbc"),
                "BadPackageArchitecture: The package is for another architecture: m68 ?\xc3\xbc");
}

TEST_F(BusError, NamesANameThatIsNotUtf8) {
  expectRefused(packageWith(RPMTAG_NAME, "a \xff\xc3\xbc"),
                "BadPackageID: The package has a name that is too long or not UTF-8");
}

TEST_F(BusError, NamesAConflictOfFiles) {
  expectRefused(package({.name = "other",
                         .install = "mkdir -p %{buildroot}/opt/sample; echo else > %{buildroot}/opt/sample/file",
                         .files = "/opt/sample/file"},
                        "bob"),
                "FileConflict: Another package has a different file at the path: /opt/sample/file");
}

/// A registry that even root cannot write.
TEST_F(BusError, NamesAFailureOfTheSystem) {
  const fs::path path = package({.name = "other"}, "bob");
  const std::string events = Support::readFile(m_device.registry());
  fs::remove(m_device.registry());
  fs::create_directory(m_device.registry());
  EXPECT_EQ(installationError(path), "velta.KRV.Error.Filesystem: Couldn't read the package registry");
  EXPECT_EQ(busErrorOf([&] { m_device.client().remove("sample"); }),
            "velta.KRV.Error.Filesystem: Couldn't read the package registry");
  EXPECT_THAT(m_device.client().installed(), testing::ElementsAre("sample 1.0-1"));
  fs::remove(m_device.registry());
  Support::writeFile(m_device.registry(), events);
  EXPECT_EQ(installationError(path), "no error");
}

TEST_F(BusError, NamesAPackageThatIsNotInstalled) {
  EXPECT_EQ(busErrorOf([&] { m_device.client().remove("other"); }),
            "velta.KRV.Error.PackageNotExist: The package is not installed: other");
}

} // namespace
