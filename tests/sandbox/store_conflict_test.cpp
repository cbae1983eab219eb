// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store_fixture.h"
#include "tests/support/files/special_files.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

namespace {

namespace fs = std::filesystem;
using Support::PackageInput;

/// Whose files they are, where several could be meant.
class StoreConflict : public StoreTest::Fixture {
protected:
  /// A package that is made of the shell lines `install` in its directory /opt/common.
  static PackageInput inCommon(const std::string& name, const std::string& install) {
    return {.name = name,
            .install = "mkdir -p %{buildroot}/opt/common; cd %{buildroot}/opt/common\n" + install,
            .files = "/opt/common"};
  }
  /// The package with a header that lacks what tells most files apart.
  std::string withoutDigestsAndTargets(const PackageInput& input) {
    return package(input, [](Header header) {
      headerDel(header, RPMTAG_FILEDIGESTS);
      headerDel(header, RPMTAG_FILELINKTOS);
    });
  }
  static PackageInput versionTwo(PackageInput input) {
    input.version = "2.0";
    return input;
  }
};

constexpr const char* conflict = "FileConflict: The package has a file where another one is: /opt/common/file";

TEST_F(StoreConflict, WithAFileOfNobody) {
  Support::writeFile(root() / "opt/common/file", "mine");
  expectRefused(package(inCommon("sample", "echo x >file")), conflict);
}

// That it looks the same does not make it the package's to remove later.
TEST_F(StoreConflict, WithTheSameFileOfNobody) {
  Support::writeFile(root() / "opt/common/file", "x\n");
  expectRefused(package(inCommon("sample", "echo x >file")), conflict);
}

TEST_F(StoreConflict, WithADanglingLinkOfNobody) {
  fs::create_directories(root() / "opt/common");
  fs::create_symlink("nowhere", root() / "opt/common/file");
  expectRefused(package(inCommon("sample", "echo x >file")), conflict);
}

TEST_F(StoreConflict, WithADirectory) {
  fs::create_directories(root() / "opt/common/file");
  expectRefused(package(inCommon("sample", "echo x >file")), conflict);
}

TEST_F(StoreConflict, WithAFileInPlaceOfADirectory) {
  Support::writeFile(root() / "opt/common", "mine");
  expectRefused(package(inCommon("sample", "")),
                "FileConflict: The package has a directory where something else is: /opt/common");
}

TEST_F(StoreConflict, WithAFileInPlaceOfAParent) {
  Support::writeFile(root() / "opt", "mine");
  expectRefused(package(inCommon("sample", "")),
                "FileConflict: The package has a file below what is no directory: /opt");
}

TEST_F(StoreConflict, WithAnotherPackage) {
  install(inCommon("first", "echo x >file"));
  expectRefused(package(inCommon("second", "echo y >file")),
                "FileConflict: The package has a file that another package has differently: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageInTheModeAlone) {
  install(inCommon("first", "echo x >file"));
  expectRefused(package(inCommon("second", "echo x >file; chmod 600 file")),
                "FileConflict: The package has a file that another package has differently: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageInTheTargetAlone) {
  install(inCommon("first", "ln -s abc file"));
  expectRefused(package(inCommon("second", "ln -s xyz file")),
                "FileConflict: The package has a file that another package has differently: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageInTheSizeAlone) {
  installFile(withoutDigestsAndTargets(inCommon("first", "echo x >file")));
  expectRefused(withoutDigestsAndTargets(inCommon("second", "echo xy >file")),
                "FileConflict: The package has a file that another package has differently: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageInTheTypeAlone) {
  installFile(withoutDigestsAndTargets(inCommon("first", "printf abc >file; chmod 777 file")));
  expectRefused(withoutDigestsAndTargets(inCommon("second", "ln -s abc file")),
                "FileConflict: The package has a file that another package has differently: /opt/common/file");
}

TEST_F(StoreConflict, WithAGhostOfAnotherPackage) {
  installFile(withoutDigestsAndTargets(inCommon("first", "echo x >file")));
  PackageInput ghost = inCommon("second", "echo x >file");
  ghost.files = "%dir /opt/common\n%ghost /opt/common/file";
  expectRefused(withoutDigestsAndTargets(ghost),
                "FileConflict: The package has a file that another package has differently: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageThatCameAfterTheInstalledVersion) {
  install(inCommon("first", "echo x >file"));
  install(inCommon("second", "echo x >file"));
  expectRefused(package(versionTwo(inCommon("first", "echo y >file"))),
                "FileConflict: The package has a file that another package has differently: /opt/common/file");
}

// Another package has the file too: it is not this one's alone to put back.
TEST_F(StoreConflict, WithWhatHasTakenThePlaceOfASharedFile) {
  install(inCommon("first", "echo x >file"));
  install(inCommon("second", "echo x >file"));
  fs::remove(root() / "opt/common/file");
  fs::create_symlink("elsewhere", root() / "opt/common/file");
  expectRefused(package(versionTwo(inCommon("first", "echo x >file"))), conflict);
}

TEST_F(StoreConflict, OfAFileThatBecomesADirectory) {
  install(inCommon("sample", "echo x >file"));
  expectRefused(package(versionTwo(inCommon("sample", "mkdir file"))),
                "FileConflict: The package has a directory where something else is: /opt/common/file");
}

TEST_F(StoreConflict, OfADirectoryThatBecomesAFile) {
  install(inCommon("sample", "mkdir file"));
  expectRefused(package(versionTwo(inCommon("sample", "echo x >file"))), conflict);
}

TEST_F(StoreConflict, OfADirectoryThatBecomesALink) {
  install(inCommon("sample", "mkdir file"));
  expectRefused(package(versionTwo(inCommon("sample", "ln -s /etc file"))), conflict);
}

TEST_F(StoreConflict, IsNoneForTheSameFileOfTwoPackages) {
  install(inCommon("first", "echo x >file; ln -s file link; echo 1 >first"));
  Support::writeFile(root() / "opt/common/file", "changed by the user");
  install(inCommon("second", "echo x >file; ln -s file link; echo 2 >second"));
  const std::string shared = "opt 755 directory\n"
                             "opt/common 755 directory\n"
                             "opt/common/file 644 \"changed by the user\"\n";
  EXPECT_EQ(tree(), shared + "opt/common/first 644 \"1\n\"\n"
                             "opt/common/link -> file\n"
                             "opt/common/second 644 \"2\n\"\n");
  store().remove("first");
  EXPECT_EQ(tree(), shared + "opt/common/link -> file\nopt/common/second 644 \"2\n\"\n");
  store().remove("second");
  EXPECT_EQ(tree(), "opt 755 directory\n");
}

TEST_F(StoreConflict, IsNoneForASharedDirectoryWhichKeepsItsMode) {
  install(inCommon("first", ""));
  install(inCommon("second", "chmod 750 ."));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\n");
  install(versionTwo(inCommon("first", "chmod 700 .")));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\n");
  store().remove("second");
  PackageInput third = inCommon("first", "chmod 700 .");
  third.version = "3.0";
  install(third);
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 700 directory\n");
}

TEST_F(StoreConflict, IsNoneForASharedFileThatAnUpdateDrops) {
  install(inCommon("first", "echo x >file"));
  install(inCommon("second", "echo x >file"));
  install(versionTwo(inCommon("first", "")));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file 644 \"x\n\"\n");
}

TEST_F(StoreConflict, IsNoneForASharedFileThatIsMissing) {
  install(inCommon("first", "echo x >file"));
  fs::remove(root() / "opt/common/file");
  install(inCommon("second", "echo x >file"));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file 644 \"x\n\"\n");
}

TEST_F(StoreConflict, IsNoneForAFileThatBecomesALinkAndBack) {
  install(inCommon("sample", "echo x >file"));
  install(versionTwo(inCommon("sample", "ln -s other file")));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file -> other\n");
  PackageInput third = inCommon("sample", "echo y >file");
  third.version = "3.0";
  install(third);
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file 644 \"y\n\"\n");
}

TEST_F(StoreConflict, IsNoneForAGhostThatBecomesAFile) {
  PackageInput ghost = inCommon("sample", "");
  ghost.files += "\n%ghost /opt/common/file";
  install(ghost);
  Support::writeFile(root() / "opt/common/file", "written at run time");
  install(versionTwo(inCommon("sample", "echo x >file")));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file 644 \"x\n\"\n");
}

TEST_F(StoreConflict, IsNoneForAGhostOfADirectoryWhichIsNotMade) {
  PackageInput ghost = inCommon("sample", "mkdir later");
  ghost.files = "%dir /opt/common\n%ghost %dir /opt/common/later";
  install(ghost);
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\n");
}

// A group of names of one file, of which the one that carries the content is another package's already.
TEST_F(StoreConflict, IsNoneForSomeNamesOfOneFile) {
  install(inCommon("first", "echo x >a"));
  install(inCommon("second", "echo x >a; ln a b; ln a c"));
  EXPECT_EQ(tree(), "opt 755 directory\n"
                    "opt/common 755 directory\n"
                    "opt/common/a 644 \"x\n\"\n"
                    "opt/common/b 644 \"x\n\"\n"
                    "opt/common/c 644 is also b\n");
}

} // namespace
