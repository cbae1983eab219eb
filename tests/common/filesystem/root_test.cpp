// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/root.h"
#include "tests/support/process/environment.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using Common::Filesystem::rootDirectory;
using Support::ScopedEnvironment;

TEST(Root, IsASlashWithoutTheVariable) {
  const ScopedEnvironment root("KRV_ROOT_FS", std::nullopt);
  EXPECT_EQ(rootDirectory().native(), "/");
  EXPECT_EQ((rootDirectory() / "var/lib/krv/registry").native(), "/var/lib/krv/registry");
}

TEST(Root, IsTheUnchangedValueOfTheVariable) {
  for (const std::string value :
       {"", "/", "/mnt/image", "/mnt/image/", "mnt/image", "//mnt/./x/../y", " ", "/no such"}) {
    const ScopedEnvironment root("KRV_ROOT_FS", value);
    EXPECT_EQ(rootDirectory().native(), value);
  }
}

TEST(Root, IsFollowedByOneSeparator) {
  struct Case {
    const char* root;
    const char* joined;
  };
  for (const Case& each :
       {Case{"", "usr/share/krv/pre-install-apps"}, Case{"image", "image/usr/share/krv/pre-install-apps"},
        Case{"/mnt/image", "/mnt/image/usr/share/krv/pre-install-apps"},
        Case{"/mnt/image/", "/mnt/image/usr/share/krv/pre-install-apps"}}) {
    const ScopedEnvironment root("KRV_ROOT_FS", each.root);
    EXPECT_EQ((rootDirectory() / "usr/share/krv/pre-install-apps").native(), each.joined);
  }
}

TEST(Root, IsReadAgainAtEachCall) {
  const ScopedEnvironment first("KRV_ROOT_FS", "/one");
  EXPECT_EQ(rootDirectory(), "/one");
  const ScopedEnvironment second("KRV_ROOT_FS", "/two");
  EXPECT_EQ(rootDirectory(), "/two");
}

} // namespace
