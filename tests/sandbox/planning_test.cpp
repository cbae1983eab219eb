// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/planning.h"
#include "tests/support/temp_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Sandbox::Change;
using Sandbox::ChangePlan;
using Sandbox::DirectoryMode;
using Sandbox::PackagedFiles;

Common::Rpm::PackagedFile packaged(fs::file_type type, fs::perms permissions) {
  Common::Rpm::PackagedFile file{};
  file.type = type;
  file.permissions = permissions;
  return file;
}

// A directory that may not be searched would hide those in it from everybody but root.
TEST(InstallationPlan, SetsTheModeOfADirectoryAfterThoseInIt) {
  const Support::TempDirectory root;
  PackagedFiles files;
  for (const char* path : {"opt", "opt/a", "opt/a/b"})
    files.emplace(path, packaged(fs::file_type::directory, fs::perms::none));
  const ChangePlan plan = Sandbox::planInstallation(root.path(), files, {.earlier = {}, .others = {}});
  EXPECT_EQ(plan.newDirectories, (std::vector<fs::path>{"opt", "opt/a", "opt/a/b"}));
  const std::vector<DirectoryMode> modes = {{.path = "opt/a/b", .permissions = fs::perms::none},
                                            {.path = "opt/a", .permissions = fs::perms::none},
                                            {.path = "opt", .permissions = fs::perms::none}};
  EXPECT_EQ(plan.directoryModes, modes);
}

// The store installs no such package, but another tool may have registered one in the same database.
TEST(RemovalPlan, LeavesWhatTheStoreGoesByEvenToAPackageThatClaimsIt) {
  const Support::TempDirectory root;
  PackagedFiles claimed;
  for (const char* path :
       {"etc/krv/trusted-ca/ca.pem", "etc/other", "var/lib/krv/registry", "var/lib/rpm/rpmdb.sqlite"}) {
    Support::writeFile(root / path, "content");
    claimed.emplace(path, packaged(fs::file_type::regular, fs::perms::owner_read));
  }
  const ChangePlan plan = Sandbox::planRemoval(root.path(), {.earlier = claimed, .others = {}});
  const std::vector<Change> expected = {{.kind = Change::Kind::Delete, .number = 0, .path = "etc/other"}};
  EXPECT_EQ(plan.changes, expected);
}

} // namespace
