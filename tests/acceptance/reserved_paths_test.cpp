// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/reserved_paths.h"
#include "tests/support/diagnostics/thrown.h"

#include <gtest/gtest.h>

namespace {

using std::filesystem::file_type;
using Support::errorOf;

TEST(ReservedPaths, AreTheFoldersAndAllThatIsInThem) {
  for (const char* path : {"etc/krv", "etc/krv/trusted-ca", "usr/share/krv/a", "var/lib/krv", "var/lib/rpm/x/y"})
    EXPECT_TRUE(Acceptance::isReserved(path)) << path;
  for (const char* path : {"", "etc", "etc/krv2", "usr/share", "krv", "opt/etc/krv"})
    EXPECT_FALSE(Acceptance::isReserved(path)) << path;
}

TEST(ReservedPaths, AreLedToByTheDirectoriesAboveThem) {
  for (const char* path : {"", "etc", "usr", "usr/share", "var/lib", "var/lib/rpm"})
    EXPECT_TRUE(Acceptance::leadsToReserved(path)) << path;
  for (const char* path : {"opt", "etc/krv/trusted-ca", "etc/krv2", "usr/shared"})
    EXPECT_FALSE(Acceptance::leadsToReserved(path)) << path;
}

TEST(ReservedPaths, RefuseEntriesOfPackages) {
  EXPECT_EQ(errorOf([] { Acceptance::requireUnreserved("etc/krv/x", file_type::directory); }),
            "FileConflict: The package has a file in a folder that is not for packages: /etc/krv/x");
  EXPECT_EQ(errorOf([] { Acceptance::requireUnreserved("usr", file_type::symlink); }),
            "FileConflict: The package replaces the parent of a folder that is not for packages: /usr");
  EXPECT_EQ(errorOf([] { Acceptance::requireUnreserved("usr", file_type::directory); }), "no error");
  EXPECT_EQ(errorOf([] { Acceptance::requireUnreserved("opt/a", file_type::regular); }), "no error");
}

} // namespace
