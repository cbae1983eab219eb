// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store/store_fixture.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

namespace {

namespace fs = std::filesystem;

/// Attacks by a package, which must fail.
class StoreHostility : public StoreTest::Fixture {
protected:
  /// A package whose files the shell lines `install` create, and in whose file names `from` is then replaced by `to`.
  std::string forged(const std::string& install, const std::string& from, const std::string& to) {
    const std::string path = unsignedPackage({.install = "mkdir -p %{buildroot}/opt; cd %{buildroot}/opt\n" + install,
                                              .files = "/opt/*",
                                              .globals = "%global _binary_payload w.ufdio"});
    Support::replaceEverywhere(path, from, to);
    Support::sign(path, "alice");
    return path;
  }

  Support::PackageInput fileAt(const std::string& path, const std::string& name = "sample") const {
    return {.name = name,
            .install = "mkdir -p $(dirname %{buildroot}" + path + "); echo mine >%{buildroot}" + path,
            .files = path};
  }

  std::string outside() const { return m_rpm.path() / "outside"; }
};

TEST_F(StoreHostility, CannotWriteThroughItsOwnSymlink) {
  fs::create_directory(outside());
  expectRefused(forged("ln -s " + outside() + " a; echo x >aXfile", "aXfile", "a/file"),
                "BadPackageContent: The package has an entry below an entry that is not a directory: /opt/a/file");
  EXPECT_TRUE(fs::is_empty(outside()));
}

TEST_F(StoreHostility, CannotWriteBelowItsOwnFile) {
  expectRefused(forged("echo x >a; echo x >aXfile", "aXfile", "a/file"),
                "BadPackageContent: The package has an entry below an entry that is not a directory: /opt/a/file");
}

TEST_F(StoreHostility, CannotWriteThroughASymlinkOfAnotherPackage) {
  fs::create_directory(outside());
  install({.name = "first",
           .install = "mkdir -p %{buildroot}/opt; ln -s " + outside() + " %{buildroot}/opt/a",
           .files = "/opt/a"});
  expectRefused(package(fileAt("/opt/a/file")),
                "FileConflict: The package has a file below a path that is not a directory: /opt/a");
  EXPECT_TRUE(fs::is_empty(outside()));
}

TEST_F(StoreHostility, CannotWriteThroughASymlinkOfTheRoot) {
  fs::create_directory(outside());
  fs::create_directory_symlink(outside(), root() / "opt");
  expectRefused(package(fileAt("/opt/file")),
                "FileConflict: The package has a file below a path that is not a directory: /opt");
  EXPECT_TRUE(fs::is_empty(outside()));
}

TEST_F(StoreHostility, CannotHaveADirectoryInPlaceOfASymlink) {
  fs::create_directory(outside());
  fs::create_directory_symlink(outside(), root() / "opt");
  expectRefused(package({.install = "mkdir %{buildroot}/opt", .files = "%dir %attr(700, root, root) /opt"}),
                "FileConflict: The package has a directory at the path of another entry: /opt");
}

TEST_F(StoreHostility, CannotUseNamesThatAreNotNormalised) {
  for (const std::string name : {"../file", "./Xfile", "//Xfile", "a/../fi", "Xfile//"})
    expectRefused(forged("echo x >" + std::string(name.size(), 'Y'), std::string(name.size(), 'Y'), name),
                  "BadPackageContent: The package has an entry whose path is not absolute and normalised: /opt/" +
                      name);
}

TEST_F(StoreHostility, CannotUseRelativeNames) {
  expectRefused(package(fileAt("/opt/file"),
                        [](Header header) {
                          headerDel(header, RPMTAG_DIRNAMES);
                          headerPutString(header, RPMTAG_DIRNAMES, "opt/");
                        }),
                "BadPackageContent: The package has an entry whose path is not absolute and normalised: opt/file");
}

TEST_F(StoreHostility, CannotHaveTwoEntriesWithOnePath) {
  expectRefused(forged("echo x >first; echo y >later", "later", "first"),
                "BadPackageContent: The package has two entries with the same path: /opt/first");
}

TEST_F(StoreHostility, CannotChangeReservedFolders) {
  for (const std::string path : {"/var/lib/krv/registry.new", "/var/lib/rpm/extra", "/etc/krv/trusted-ca/mine.0",
                                 "/usr/share/krv/pre-install-apps/mine.rpm"})
    expectRefused(package(fileAt(path)),
                  "FileConflict: The package has a file in a folder that is not for packages: " + path);
}

TEST_F(StoreHostility, CannotReplaceParentsOfReservedFolders) {
  expectRefused(package({.install = "ln -s opt %{buildroot}/usr", .files = "/usr"}),
                "FileConflict: The package replaces the parent of a folder that is not for packages: /usr");
}

TEST_F(StoreHostility, MayUseNeighboursOfReservedFolders) {
  install(fileAt("/var/lib/krv-app/file"));
  EXPECT_EQ(tree(), "var/lib/krv-app 755 directory\n"
                    "var/lib/krv-app/file 644 \"mine\n\"\n");
}

TEST_F(StoreHostility, CannotClaimAnExistingFileAsAGhost) {
  Support::writeFile(root() / "opt/precious", "mine");
  expectRefused(package({.install = "", .files = "%ghost /opt/precious"}),
                "FileConflict: The package has a file at the path of another entry: /opt/precious");
}

TEST_F(StoreHostility, CannotSetModesOfExistingDirectories) {
  fs::create_directories(root() / "opt/open");
  const std::string before = tree();
  install({.install = "mkdir -p %{buildroot}/opt/open", .files = "%dir %attr(777, root, root) /opt/open"});
  EXPECT_EQ(tree(), before);
}

TEST_F(StoreHostility, GetsNoSetIdBits) {
  install({.install = "mkdir -p %{buildroot}/opt/d; touch %{buildroot}/opt/d/f; chmod 6755 %{buildroot}/opt/d/f; "
                      "chmod 7777 %{buildroot}/opt/d",
           .files = "/opt/d"});
  EXPECT_EQ(tree(), "opt 755 directory\nopt/d 1777 directory\nopt/d/f 755 \"\"\n");
}

TEST_F(StoreHostility, GetsItsSymlinksUnchanged) {
  install({.install = "mkdir -p %{buildroot}/opt; ln -s /etc/passwd %{buildroot}/opt/link", .files = "/opt/link"});
  EXPECT_EQ(tree(), "opt 755 directory\nopt/link -> /etc/passwd\n");
}

TEST_F(StoreHostility, CannotRunItsScripts) {
  const std::string ran = m_rpm.path() / "ran";
  std::string sections;
  for (const std::string section :
       {"pre", "post", "preun", "postun", "pretrans", "posttrans", "triggerin -- sample", "triggerun -- sample",
        "triggerpostun -- sample", "filetriggerin -- /opt", "filetriggerun -- /opt", "transfiletriggerin -- /opt",
        "transfiletriggerpostun -- /opt"})
    sections += "%" + section + "\ntouch " + ran + "\n";
  const std::string first = package({.sections = sections});
  const std::string second = package({.version = "2.0", .sections = sections});
  {
    const Support::CapturedLog log;
    installFile(first);
    EXPECT_EQ(log.text(), "[I] Installed: sample 1.0-1\n[W] The scripts of the package are not run: " + first + "\n");
  }
  installFile(second);
  store().remove("sample");
  EXPECT_FALSE(fs::exists(ran));
  EXPECT_EQ(tree(), "opt 755 directory\n");
}

} // namespace
