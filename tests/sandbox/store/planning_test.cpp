// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/planning.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using Acceptance::PackagedFiles;
using Sandbox::Change;
using Sandbox::ChangePlan;
using Sandbox::DirectoryMode;

Acceptance::PackagedFile packaged(fs::file_type type, fs::perms permissions) {
  Acceptance::PackagedFile file{};
  file.type = type;
  file.permissions = permissions;
  return file;
}

// After a directory becomes unsearchable, only root could change the directories in it.
TEST(InstallationPlan, SetsModesOfSubdirectoriesFirst) {
  const Support::TempDirectory root;
  PackagedFiles files;
  for (const char* path : {"opt", "opt/a", "opt/a/b"})
    files.emplace(path, packaged(fs::file_type::directory, fs::perms::none));
  const ChangePlan plan =
      Sandbox::planInstallation(Sandbox::Directory(root.path()), files, {.earlier = {}, .others = {}});
  EXPECT_EQ(plan.newDirectories, (std::vector<fs::path>{"opt", "opt/a", "opt/a/b"}));
  const std::vector<DirectoryMode> modes = {{.path = "opt/a/b", .permissions = fs::perms::none},
                                            {.path = "opt/a", .permissions = fs::perms::none},
                                            {.path = "opt", .permissions = fs::perms::none}};
  EXPECT_EQ(plan.directoryModes, modes);
}

TEST(InstallationPlan, KeepsTheStickyBitsOfDirectories) {
  const Support::TempDirectory root;
  PackagedFiles files;
  for (const char* path : {"opt", "opt/a", "opt/b"}) {
    fs::create_directory(root / path);
    fs::permissions(root / path, fs::perms(0755));
    files.emplace(path, packaged(fs::file_type::directory, fs::perms::all));
  }
  fs::permissions(root / "opt/a", fs::perms::all | fs::perms::sticky_bit);
  files.emplace("opt/c", packaged(fs::file_type::directory, fs::perms(07777)));
  const ChangePlan plan =
      Sandbox::planInstallation(Sandbox::Directory(root.path()), files, {.earlier = files, .others = {}});
  const std::vector<DirectoryMode> modes = {
      {.path = "opt/c", .permissions = fs::perms(01777)},
      {.path = "opt/b", .permissions = fs::perms(0777), .earlier = fs::perms(0755)},
      {.path = "opt/a", .permissions = fs::perms(01777), .earlier = fs::perms(01777)},
      {.path = "opt", .permissions = fs::perms(0777), .earlier = fs::perms(0755)}};
  EXPECT_EQ(plan.directoryModes, modes);
}

// A user who can rename entries in one of these could replace the store's folders.
TEST(InstallationPlan, GivesParentsOfReservedFoldersMode0755) {
  const Support::TempDirectory root;
  fs::create_directory(root / "etc");
  PackagedFiles files;
  for (const char* path : {"etc", "usr", "usr/share", "usr/share/app", "var"})
    files.emplace(path, packaged(fs::file_type::directory, fs::perms::all));
  const ChangePlan plan =
      Sandbox::planInstallation(Sandbox::Directory(root.path()), files, {.earlier = files, .others = {}});
  const std::vector<DirectoryMode> modes = {{.path = "var", .permissions = fs::perms(0755)},
                                            {.path = "usr/share/app", .permissions = fs::perms(0777)},
                                            {.path = "usr/share", .permissions = fs::perms(0755)},
                                            {.path = "usr", .permissions = fs::perms(0755)}};
  EXPECT_EQ(plan.directoryModes, modes);
}

// The store refuses such a package, but another tool may have added one to the same database.
TEST(RemovalPlan, KeepsReservedFoldersEvenIfAPackageOwnsThem) {
  const Support::TempDirectory root;
  PackagedFiles claimed;
  for (const char* path :
       {"etc/krv/trusted-ca/ca.pem", "etc/other", "var/lib/krv/registry", "var/lib/rpm/rpmdb.sqlite"}) {
    Support::writeFile(root / path, "content");
    claimed.emplace(path, packaged(fs::file_type::regular, fs::perms::owner_read));
  }
  const ChangePlan plan = Sandbox::planRemoval(Sandbox::Directory(root.path()), {.earlier = claimed, .others = {}});
  struct stat status = {};
  ASSERT_EQ(stat((root / "etc/other").c_str(), &status), 0);
  const std::vector<Change> expected = {
      {.kind = Change::Kind::Delete, .number = 0, .path = "etc/other", .oldInode = status.st_ino}};
  EXPECT_EQ(plan.changes, expected);
}

} // namespace
