// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/handles.h"
#include "tests/sandbox/store/store_fixture.h"
#include "tests/support/files/special_files.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

namespace {

namespace fs = std::filesystem;
using Support::PackageInput;

/// Tests which package owns a file if several could.
class StoreConflict : public StoreTest::Fixture {
protected:
  /// A package whose files the shell lines `install` create in /opt/common.
  static PackageInput inCommon(const std::string& name, const std::string& install) {
    return {.name = name,
            .install = "mkdir -p %{buildroot}/opt/common; cd %{buildroot}/opt/common\n" + install,
            .files = "/opt/common"};
  }
  /// The package without the header tags that distinguish most files.
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

constexpr const char* conflict = "FileConflict: The package has a file at the path of another entry: /opt/common/file";

TEST_F(StoreConflict, WithAnUnownedFile) {
  Support::writeFile(root() / "opt/common/file", "mine");
  expectRefused(package(inCommon("sample", "echo x >file")), conflict);
}

// An equal file is still not the package's own, so the package must not remove it later.
TEST_F(StoreConflict, WithAnEqualUnownedFile) {
  Support::writeFile(root() / "opt/common/file", "x\n");
  expectRefused(package(inCommon("sample", "echo x >file")), conflict);
}

TEST_F(StoreConflict, WithAnUnownedDanglingSymlink) {
  fs::create_directories(root() / "opt/common");
  fs::create_symlink("nowhere", root() / "opt/common/file");
  expectRefused(package(inCommon("sample", "echo x >file")), conflict);
}

TEST_F(StoreConflict, WithADirectory) {
  fs::create_directories(root() / "opt/common/file");
  expectRefused(package(inCommon("sample", "echo x >file")), conflict);
}

TEST_F(StoreConflict, WithAFileInPlaceOfItsDirectory) {
  Support::writeFile(root() / "opt/common", "mine");
  expectRefused(package(inCommon("sample", "")),
                "FileConflict: The package has a directory at the path of another entry: /opt/common");
}

TEST_F(StoreConflict, WithAFileInPlaceOfItsParent) {
  Support::writeFile(root() / "opt", "mine");
  expectRefused(package(inCommon("sample", "")),
                "FileConflict: The package has a file below a path that is not a directory: /opt");
}

TEST_F(StoreConflict, WithAnotherPackage) {
  install(inCommon("first", "echo x >file"));
  expectRefused(package(inCommon("second", "echo y >file")),
                "FileConflict: Another package has a different file at the path: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageOnlyInTheMode) {
  install(inCommon("first", "echo x >file"));
  expectRefused(package(inCommon("second", "echo x >file; chmod 600 file")),
                "FileConflict: Another package has a different file at the path: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageOnlyInTheTarget) {
  install(inCommon("first", "ln -s abc file"));
  expectRefused(package(inCommon("second", "ln -s xyz file")),
                "FileConflict: Another package has a different file at the path: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageOnlyInTheSize) {
  installFile(withoutDigestsAndTargets(inCommon("first", "echo x >file")));
  expectRefused(withoutDigestsAndTargets(inCommon("second", "echo xy >file")),
                "FileConflict: Another package has a different file at the path: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageOnlyInTheType) {
  installFile(withoutDigestsAndTargets(inCommon("first", "printf abc >file; chmod 777 file")));
  expectRefused(withoutDigestsAndTargets(inCommon("second", "ln -s abc file")),
                "FileConflict: Another package has a different file at the path: /opt/common/file");
}

TEST_F(StoreConflict, WithAGhostOfAnotherPackage) {
  installFile(withoutDigestsAndTargets(inCommon("first", "echo x >file")));
  PackageInput ghost = inCommon("second", "echo x >file");
  ghost.files = "%dir /opt/common\n%ghost /opt/common/file";
  expectRefused(withoutDigestsAndTargets(ghost),
                "FileConflict: Another package has a different file at the path: /opt/common/file");
}

TEST_F(StoreConflict, WithAnotherPackageInstalledAfterTheEarlierVersion) {
  install(inCommon("first", "echo x >file"));
  install(inCommon("second", "echo x >file"));
  expectRefused(package(versionTwo(inCommon("first", "echo y >file"))),
                "FileConflict: Another package has a different file at the path: /opt/common/file");
}

// Another package owns the file too, so this package must not restore it.
TEST_F(StoreConflict, WithAnEntryThatReplacedASharedFile) {
  install(inCommon("first", "echo x >file"));
  install(inCommon("second", "echo x >file"));
  fs::remove(root() / "opt/common/file");
  fs::create_symlink("elsewhere", root() / "opt/common/file");
  expectRefused(package(versionTwo(inCommon("first", "echo x >file"))), conflict);
}

TEST_F(StoreConflict, OfAFileThatBecomesADirectory) {
  install(inCommon("sample", "echo x >file"));
  expectRefused(package(versionTwo(inCommon("sample", "mkdir file"))),
                "FileConflict: The package has a directory at the path of another entry: /opt/common/file");
}

TEST_F(StoreConflict, OfADirectoryThatBecomesAFile) {
  install(inCommon("sample", "mkdir file"));
  expectRefused(package(versionTwo(inCommon("sample", "echo x >file"))), conflict);
}

TEST_F(StoreConflict, OfADirectoryThatBecomesASymlink) {
  install(inCommon("sample", "mkdir file"));
  expectRefused(package(versionTwo(inCommon("sample", "ln -s /etc file"))), conflict);
}

TEST_F(StoreConflict, DoesNotOccurForTheSameFileOfTwoPackages) {
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

TEST_F(StoreConflict, DoesNotOccurForASharedDirectoryWhichKeepsItsMode) {
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

TEST_F(StoreConflict, DoesNotOccurForASharedFileThatAnUpdateDrops) {
  install(inCommon("first", "echo x >file"));
  install(inCommon("second", "echo x >file"));
  install(versionTwo(inCommon("first", "")));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file 644 \"x\n\"\n");
}

TEST_F(StoreConflict, DoesNotOccurForAMissingSharedFile) {
  install(inCommon("first", "echo x >file"));
  fs::remove(root() / "opt/common/file");
  install(inCommon("second", "echo x >file"));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file 644 \"x\n\"\n");
}

TEST_F(StoreConflict, DoesNotOccurForAFileThatBecomesASymlinkAndBack) {
  install(inCommon("sample", "echo x >file"));
  install(versionTwo(inCommon("sample", "ln -s other file")));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file -> other\n");
  PackageInput third = inCommon("sample", "echo y >file");
  third.version = "3.0";
  install(third);
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file 644 \"y\n\"\n");
}

TEST_F(StoreConflict, DoesNotOccurForAGhostThatBecomesAFile) {
  PackageInput ghost = inCommon("sample", "");
  ghost.files += "\n%ghost /opt/common/file";
  install(ghost);
  Support::writeFile(root() / "opt/common/file", "written at run time");
  install(versionTwo(inCommon("sample", "echo x >file")));
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\nopt/common/file 644 \"x\n\"\n");
}

TEST_F(StoreConflict, DoesNotOccurForAGhostDirectoryWhichIsNotCreated) {
  PackageInput ghost = inCommon("sample", "mkdir later");
  ghost.files = "%dir /opt/common\n%ghost %dir /opt/common/later";
  install(ghost);
  EXPECT_EQ(tree(), "opt 755 directory\nopt/common 755 directory\n");
}

// A hard-link group; another package already owns the name that carries the content.
TEST_F(StoreConflict, DoesNotOccurForSomeNamesOfOneFile) {
  install(inCommon("first", "echo x >a"));
  install(inCommon("second", "echo x >a; ln a b; ln a c"));
  EXPECT_EQ(tree(), "opt 755 directory\n"
                    "opt/common 755 directory\n"
                    "opt/common/a 644 \"x\n\"\n"
                    "opt/common/b 644 \"x\n\"\n"
                    "opt/common/c 644 is also b\n");
}

} // namespace
