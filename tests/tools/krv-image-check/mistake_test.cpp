// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/files/special_files.h"
#include "tests/support/signing/pki.h"
#include "tests/tools/krv-image-check/test_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include <elf.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using ImageCheckTest::Lines;
using ImageCheckTest::TestImage;
using ImageCheckTest::writeProgram;
using Support::ProcessResult;
using Support::writeFile;

/// Tests findings that depend on several facts, and similar images that have no mistake.
class ImageMistake : public testing::Test {
protected:
  TestImage image;

  /// "ENTRY ACTION REASON" of each row of a scenario.
  Lines plan(const std::string& scenario, std::vector<std::string> options = {}) const {
    options.insert(options.end(), {"--format", "json"});
    const auto report = nlohmann::json::parse(image.run(options).output);
    Lines rows;
    for (const auto& found : report["scenarios"])
      for (const auto& row : found["rows"])
        if (found["name"] == scenario)
          rows.push_back(row["entry"].get<std::string>() + " " + row["action"].get<std::string>() + " " +
                         row["reason"].get<std::string>());
    return rows;
  }

  void makeAarch64() const { writeProgram(image / "usr/sbin/krv-pre-installer", EM_AARCH64); }
};

TEST_F(ImageMistake, DependsOnTheArchitectureOfTheImageNotOfThisMachine) {
  makeAarch64();
  EXPECT_EQ(image.findings(), Lines());
  image.add({.name = "maps", .architecture = "", .arguments = {"--target", "x86_64"}});
  image.add({.name = "mail", .architecture = "", .arguments = {"--target", "aarch64"}});
  const Lines expected{"maps.rpm: error: architecture-foreign: The package is for another architecture: x86_64"};
  EXPECT_EQ(image.findings(), expected);
  EXPECT_EQ(image.findings({"--arch", "x86_64"}),
            Lines{"mail.rpm: error: architecture-foreign: The package is for another architecture: aarch64"});
  EXPECT_EQ(plan("first-boot"), (Lines{"mail.rpm install NotInstalled", "maps.rpm refused BadPackageArchitecture",
                                       "notes.rpm install NotInstalled"}));
}

TEST_F(ImageMistake, IsNoArchitectureIfNothingTellsIt) {
  writeFile(image / "usr/sbin/krv-pre-installer", "#!/bin/sh\n");
  fs::permissions(image / "usr/sbin/krv-pre-installer", static_cast<fs::perms>(0755));
  image.add({.name = "maps", .architecture = "", .arguments = {"--target", "aarch64"}});
  const auto report = nlohmann::json::parse(image.run({"--format", "json"}).output);
  EXPECT_EQ(report["findings"].size(), 0U);
  EXPECT_EQ(report["arch"], "");
  EXPECT_EQ(report["not_checked"][0]["id"], "architecture-foreign");
}

TEST_F(ImageMistake, IsNoLinkThatIsRightInsideTheImage) {
  fs::create_directories(image / "opt/packages");
  fs::rename(image.entry("notes.rpm"), image / "opt/packages/notes.rpm");
  fs::create_symlink("/opt/packages/notes.rpm", image.entry("notes.rpm"));
  EXPECT_EQ(image.findings(), Lines());
  fs::remove(image.entry("notes.rpm"));
  fs::create_symlink("../../../../opt/packages/notes.rpm", image.entry("notes.rpm"));
  EXPECT_EQ(image.findings(), Lines());
  EXPECT_EQ(plan("first-boot"), Lines{"notes.rpm install NotInstalled"});
}

TEST_F(ImageMistake, IsALinkToAFileOfTheBuildMachine) {
  const fs::path package = image.outside() / "outside.rpm";
  fs::copy_file(image.entry("notes.rpm"), package);
  fs::create_symlink(package, image.entry("link.rpm"));
  EXPECT_EQ(image.findings(),
            Lines{"link.rpm: error: entry-link-leaves-image: its target " + package.string() + " is not in the image"});
  EXPECT_EQ(plan("first-boot"), (Lines{"link.rpm skip ListingFailed", "notes.rpm skip ListingFailed"}));
}

TEST_F(ImageMistake, IsALinkLoop) {
  fs::create_symlink("link.rpm", image.entry("link.rpm"));
  EXPECT_EQ(image.findings(), Lines{"link.rpm: error: entry-dangling-link: its target link.rpm does not exist"});
}

TEST_F(ImageMistake, IsAnEntryOfAnyOtherKind) {
  Support::makeSocket(image.entry("socket"));
  fs::create_directory(image.entry("folder"));
  writeFile(image.entry("notes.rpm.sha256"), std::string(64, '0') + "  notes.rpm\n");
  writeFile(image.entry("empty.rpm"), "");
  EXPECT_EQ(image.findings(),
            (Lines{"empty.rpm: error: entry-not-a-package: the file does not begin like an RPM package",
                   "folder: error: entry-not-a-file: the entry is a directory",
                   "notes.rpm.sha256: error: entry-not-a-package: the file does not begin like an RPM package",
                   "socket: error: entry-not-a-file: the entry is a socket"}));
}

TEST_F(ImageMistake, IsAPackageThatIsCutOrLengthened) {
  const fs::path package = image.entry("notes.rpm");
  const std::string whole = Support::readFile(package);
  fs::resize_file(package, whole.size() - 5);
  EXPECT_EQ(image.findings(), Lines{"notes.rpm: error: header-damaged: the file is shorter than its headers say"});
  writeFile(package, whole + "more");
  EXPECT_EQ(image.findings(), Lines{"notes.rpm: error: header-damaged: the file is longer than its headers say"});
  EXPECT_EQ(plan("first-boot"), Lines{"notes.rpm refused BadPackageFileFormat"});
}

TEST_F(ImageMistake, IsAFileOfNobodyThatOnlyNobodyReads) {
  if (geteuid() != 0)
    GTEST_SKIP() << "needs another user's file";
  fs::permissions(image.entry("notes.rpm"), static_cast<fs::perms>(0600));
  ASSERT_EQ(chown(image.entry("notes.rpm").c_str(), 65534, 65534), 0);
  EXPECT_EQ(image.findings(), Lines{"notes.rpm: error: entry-unreadable: it belongs to user 65534 and has mode 0600"});
}

TEST_F(ImageMistake, IsNoFileThatTwoPackagesShare) {
  const std::string install = "mkdir -p %{buildroot}/opt/shared; echo same > %{buildroot}/opt/shared/file";
  image.add({.name = "maps", .install = install, .files = "/opt/shared"});
  image.add({.name = "mail", .install = install, .files = "/opt/shared"});
  EXPECT_EQ(image.findings(), Lines());
}

TEST_F(ImageMistake, IsAFileThatTheImageHasAlready) {
  writeFile(image / "opt/notes/file", "of the image\n");
  EXPECT_EQ(image.findings(), Lines{"notes.rpm: error: file-conflict: The package has a file at the path of another "
                                    "entry: /opt/notes/file"});
  EXPECT_EQ(plan("first-boot"), Lines{"notes.rpm refused FileConflict"});
}

TEST_F(ImageMistake, IsNoPackageThatTheUserRemoved) {
  image.copy("old");
  image.add({.name = "notes", .version = "2.0"});
  EXPECT_EQ(image.findings({"--previous", "old", "--removed", "notes"}), Lines());
  EXPECT_EQ(plan("update:old", {"--previous", "old", "--removed", "notes"}), Lines{"notes.rpm skip RemovedByUser"});
}

TEST_F(ImageMistake, IsNoDeveloperWithARotation) {
  image.copy("old");
  image.add({.name = "notes", .version = "2.0"}, "alice-2", {"alice"});
  EXPECT_EQ(image.findings({"--previous", "old"}), Lines());
  EXPECT_EQ(plan("update:old", {"--previous", "old"}), Lines{"notes.rpm update Update"});
}

TEST_F(ImageMistake, IsNoCertificateOfAnEarlierImageThatHasEnded) {
  image.authority().certifyBetween("lasting", "20000101000000Z", "20600101000000Z", "authority", "");
  image.authority().trust("lasting");
  image.authority().certifyBetween("ended", "20200101000000Z", "20260101000000Z", "developer", "lasting");
  image.trustAuthority();
  const fs::path maps = image.addSignedBy("ended", {.name = "maps"});
  image.copy("old");
  EXPECT_EQ(plan("update:old", {"--previous", "old"}), (Lines{"maps.rpm skip NotNewer", "notes.rpm skip NotNewer"}));
}

TEST_F(ImageMistake, IsAUnitThatPresetsDoNotEnable) {
  fs::remove_all(image / "etc/systemd/system/multi-user.target.wants");
  EXPECT_EQ(image.findings(), Lines());
  writeFile(image / "usr/lib/systemd/system-preset/90-default.preset", "# all\ndisable *\n");
  const Lines disabled{"image: warning: tool-not-enabled: no unit wants krv-pre-installer.service, and a preset "
                       "disables it"};
  EXPECT_EQ(image.findings(), disabled);
  writeFile(image / "etc/systemd/system-preset/50-krv.preset", "enable krv-pre-installer.service\n");
  EXPECT_EQ(image.findings(), Lines());
  // A file of the same name in etc replaces the one in usr.
  fs::remove(image / "etc/systemd/system-preset/50-krv.preset");
  writeFile(image / "etc/systemd/system-preset/90-default.preset", "");
  EXPECT_EQ(image.findings(), Lines());
}

TEST_F(ImageMistake, IsAMaskedOrMissingUnit) {
  fs::create_symlink("/dev/null", image / "etc/systemd/system/krv-pre-installer.service");
  EXPECT_EQ(image.findings(), Lines{"image: warning: tool-not-enabled: krv-pre-installer.service is masked"});
  fs::remove(image / "etc/systemd/system/krv-pre-installer.service");
  fs::remove(image / "usr/lib/systemd/system/krv-pre-installer.service");
  EXPECT_EQ(image.findings(),
            Lines{"image: warning: tool-not-enabled: the image has no unit krv-pre-installer.service"});
}

TEST_F(ImageMistake, IsFoundWithTheAuthoritiesOfTheCommandLine) {
  fs::rename(image / "etc/krv/trusted-ca", image.outside() / "authorities");
  EXPECT_EQ(image.findings({"--ca-path", "authorities"}), Lines());
  EXPECT_EQ(image.findings({"--ca-path", "missing"}),
            Lines{"image: error: authorities-missing: there is no certificate in missing"});
}

TEST_F(ImageMistake, IsNoAuthorityBehindAnAbsoluteLink) {
  fs::create_directories(image / "usr/share");
  fs::rename(image / "etc/krv/trusted-ca", image / "usr/share/ca");
  fs::create_directory(image / "etc/krv/trusted-ca");
  for (const fs::directory_entry& file : fs::directory_iterator(image / "usr/share/ca"))
    fs::create_symlink("/usr/share/ca" / file.path().filename(), image / "etc/krv/trusted-ca" / file.path().filename());
  EXPECT_EQ(image.findings(), Lines());
}

TEST_F(ImageMistake, IsNotLookedForWithoutADatabase) {
  image.add({.name = "maps", .preamble = "Requires: library"});
  const auto whyNot = [&] {
    const auto report = nlohmann::json::parse(image.run({"--format", "json"}).output);
    EXPECT_EQ(report["findings"].size(), 0U);
    EXPECT_EQ(report["not_checked"][0]["id"], "dependency-missing");
    return report["not_checked"][0]["why"].get<std::string>();
  };
  fs::rename(image / "var/lib/rpm/rpmdb.sqlite", image / "var/lib/rpm/Packages.db");
  EXPECT_EQ(whyNot(), "the RPM database in var/lib/rpm is not in SQLite");
  fs::remove_all(image / "var/lib/rpm");
  EXPECT_EQ(whyNot(), "there is no RPM database in var/lib/rpm or usr/lib/sysimage/rpm");
  fs::create_directories(image / "var/lib/rpm/rpmdb.sqlite");
  EXPECT_EQ(whyNot(), "the RPM database in var/lib/rpm cannot be read");
}

TEST_F(ImageMistake, IsADatabaseThatIsDamaged) {
  writeFile(image / "var/lib/rpm/rpmdb.sqlite", "no database");
  EXPECT_EQ(image.findings(), Lines{"image: note: check-skipped: RPM cannot check the dependencies of the packages"});
}

TEST_F(ImageMistake, IsEachOfManyInOneRun) {
  image.add({.name = "maps"}, "");
  image.add({.name = "mail"}, "foreign");
  fs::create_symlink("missing.rpm", image.entry("link.rpm"));
  EXPECT_EQ(image.findings(),
            (Lines{"link.rpm: error: entry-dangling-link: its target missing.rpm does not exist",
                   "mail.rpm: error: signer-untrusted: the developer (CN=Foreign developer): no trusted authority "
                   "stands behind the issuer CN=Foreign authority",
                   "maps.rpm: error: unsigned: the package has no signature"}));
}

} // namespace
