// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/header_blob.h"
#include "tests/sandbox/store/store_fixture.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/files/special_files.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/temp_directory.h"

#include <rpm/rpmtag.h>

namespace {

/// Packages that are refused with any root; nothing of them stays.
class StoreRefusal : public StoreTest::Fixture {
protected:
  std::string missing() const { return m_rpm.path() / "missing.rpm"; }

  /// Changes the last byte of the file.
  static void damage(const std::string& path) {
    std::string bytes = Support::readFile(path);
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    Support::writeFile(path, bytes);
  }

  /// The sample package with another text under a tag.
  std::string packageWith(rpmTagVal tag, const std::string& text) {
    return package({}, [&](Header header) {
      headerDel(header, tag);
      headerPutString(header, tag, text.c_str());
    });
  }
};

TEST_F(StoreRefusal, OfARelativePath) {
  expectRefused("package-1.rpm", "FileNotFound: The path of the package is not absolute: package-1.rpm");
}

TEST_F(StoreRefusal, OfOtherTypesOfFiles) {
  const std::string message = "FileNotFound: The package is not an existing regular file: ";
  expectRefused(missing(), message + missing());
  expectRefused(m_rpm.path(), message + m_rpm.path().string());
  Support::makeFifo(m_rpm.path() / "fifo.rpm");
  expectRefused(m_rpm.path() / "fifo.rpm", message + (m_rpm.path() / "fifo.rpm").string());
}

TEST_F(StoreRefusal, OfAFileThatIsNotAPackage) {
  Support::writeFile(missing(), "no package");
  expectRefused(missing(), "BadPackageFileFormat: Couldn't read rpm package");
}

// Each has a valid signature over the whole file.
TEST_F(StoreRefusal, OfAFileThatIsLongerThanItsHeadersSay) {
  const std::string path = unsignedPackage({});
  Support::writeFile(path, Support::readFile(path) + "x");
  Support::sign(path, "alice");
  expectRefused(path, "BadPackageFileFormat: The package file is longer than its headers say: " + path);
}

TEST_F(StoreRefusal, OfAFileWithoutASizeInItsHeaders) {
  const std::string path = package({}, [](Header) {}); // its signature header has only one tag
  std::string bytes = Support::readFile(path);
  const std::size_t sizeTag = bytes.find(std::string("\0\0\x03\xe8\0\0\0\4", 8));
  ASSERT_LT(sizeTag, Support::mainHeaderOffset(bytes));
  bytes[sizeTag + 3] = '\xe9';
  Support::writeFile(path, bytes);
  expectRefused(path, "BadPackageFileFormat: The package file is longer than its headers say: " + path);
}

TEST_F(StoreRefusal, OfAnUnsignedPackage) {
  expectRefused(unsignedPackage({}), "MissingDeveloperSignature: Package doesn't have developer certificate");
}

TEST_F(StoreRefusal, OfAPackageWithoutADeveloperSignature) {
  expectRefused(package({}, {.developer = "source"}),
                "MissingDeveloperSignature: Package doesn't have developer certificate");
}

TEST_F(StoreRefusal, OfAnUntrustedDeveloper) {
  expectRefused(package({}, {.developer = "foreign"}),
                "IllegalDeveloperCertificate: Package is signed with a non-legal developer certificate");
}

TEST_F(StoreRefusal, OfAnUntrustedSource) {
  const std::string path = package({});
  Support::sign(path, "foreign-source");
  expectRefused(path, "IllegalSourceCertificate: Package is signed with a non-legal source certificate");
}

TEST_F(StoreRefusal, OfAPackageChangedAfterSigning) {
  const std::string path = package({});
  damage(path);
  expectRefused(path, "SignatureVerificationFailed: Package signature verification failed");
}

TEST_F(StoreRefusal, OfADamagedPayload) {
  const std::string path = unsignedPackage({});
  Support::replacePayload(path, "no payload");
  Support::sign(path, "alice");
  expectRefused(path, "Internal: Couldn't read content from rpm package");
}

TEST_F(StoreRefusal, OfANameThatCannotBeUsed) {
  for (const std::string name : {"", "a b", "a/b", "a->b", "a\nb", "a\x7f", "gpg-pubkey"})
    expectRefused(packageWith(RPMTAG_NAME, name),
                  "BadPackageID: The package has a name that cannot be used: '" + name + "'");
}

TEST_F(StoreRefusal, OfANameThatTheBusRefuses) {
  for (const std::string& name : {std::string("a\xff"), std::string("\xed\xa0\x80"), std::string(256, 'a')})
    expectRefused(packageWith(RPMTAG_NAME, name), "BadPackageID: The package has a name that is too long or not UTF-8");
  installFile(packageWith(RPMTAG_NAME, std::string(251, 'a') + "\xf0\x9f\x93\xa6"));
}

TEST_F(StoreRefusal, OfAVersionThatTheBusRefuses) {
  for (const std::string& version : {std::string("1\xff"), std::string(256, '1')}) {
    const std::string error = "BadPackageVersion: The package has a version or release that is too long or not UTF-8";
    expectRefused(packageWith(RPMTAG_VERSION, version), error);
    expectRefused(packageWith(RPMTAG_RELEASE, version), error);
  }
}

TEST_F(StoreRefusal, OfAnInvalidVersion) {
  for (const std::string version : {"", "1-0", "1 0", "1:0"}) {
    const std::string error = "BadPackageVersion: The package has an invalid version or release: '" + version + "'";
    expectRefused(packageWith(RPMTAG_VERSION, version), error);
    expectRefused(packageWith(RPMTAG_RELEASE, version), error);
  }
}

TEST_F(StoreRefusal, OfAnotherArchitecture) {
  expectRefused(packageWith(RPMTAG_ARCH, "m68k"),
                "BadPackageArchitecture: The package is for another architecture: m68k");
}

TEST_F(StoreRefusal, OfAHeaderThatClaimsAnInstallation) {
  const std::string path = package({}, [](Header header) {
    constexpr std::int32_t keyIdTag = 1263687237;
    Common::Rpm::Reader reader(header);
    Sandbox::addTexts(reader, keyIdTag, {"f00d"});
  });
  expectRefused(path, "BadPackageContent: The package header has tags of an installed package");
}

TEST_F(StoreRefusal, OfAPackageThatExceedsTheFreeSpace) {
  const std::string path = package({}, [](Header header) {
    const std::uint64_t sizes[] = {0, 1ULL << 61};
    headerDel(header, RPMTAG_FILESIZES);
    headerPutUint64(header, RPMTAG_LONGFILESIZES, sizes, 2);
  });
  expectRefused(path, "Filesystem: There is no space for the files of the package: " + root().string());
}

TEST_F(StoreRefusal, OfAnotherDeveloper) {
  install({});
  expectRefused(package({.version = "2.0"}, {.developer = "bob"}),
                "DeveloperMismatch: The installed package is from another developer: sample");
}

// The developer is checked before the version.
TEST_F(StoreRefusal, OfTheSameVersionOfAnotherDeveloper) {
  install({});
  expectRefused(package({}, {.developer = "bob"}),
                "DeveloperMismatch: The installed package is from another developer: sample");
}

TEST_F(StoreRefusal, OfASupersededKey) {
  install({}, {.developer = "alice-2", .previous = {"alice"}});
  expectRefused(package({.version = "2.0"}),
                "DeveloperKeySuperseded: The installed package is signed with a newer key of its developer: sample");
}

TEST_F(StoreRefusal, OfTheSameVersion) {
  install({});
  expectRefused(package({}),
                "SamePackageIsInstalled: This version of the package is installed: sample 1.0-1 over 1.0-1");
}

TEST_F(StoreRefusal, OfALowerVersion) {
  install({.preamble = "Epoch: 2"});
  expectRefused(package({.version = "9.0"}),
                "DowngradeAttempt: A newer version of the package is installed: sample 9.0-1 over 2:1.0-1");
}

TEST_F(StoreRefusal, OfRemovingAPackageThatIsNotInstalled) {
  EXPECT_EQ(Support::errorOf([&] { store().remove("sample"); }),
            "PackageNotExist: The package is not installed: sample");
  EXPECT_EQ(Support::errorOf([&] { store().get("sample"); }), "PackageNotExist: The package is not installed: sample");
}

} // namespace
