// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "acceptance/package_rules.h"
#include "tests/support/diagnostics/thrown.h"

#include <gtest/gtest.h>

namespace {

using Acceptance::PackageIdentity;
using Keys = std::vector<std::string>;

PackageIdentity package(const std::string& version, const std::string& keyId, const Keys& previous = {}) {
  return {.name = "app", .version = version, .developer = {.keyId = keyId, .subgroup = "", .previousKeyIds = previous}};
}

std::string refusalOf(const PackageIdentity& offered, const PackageIdentity& installed) {
  return Support::errorOf([&] { Acceptance::requireSuccessor(offered, installed); });
}

TEST(PackageRules, AcceptANewerVersionOfTheSameDeveloper) {
  EXPECT_EQ(refusalOf(package("2-1", "k1"), package("1-1", "k1")), "no error");
  EXPECT_EQ(refusalOf(package("1:1-1", "k1"), package("2-1", "k1")), "no error");
  EXPECT_EQ(refusalOf(package("2-1", "k3", {"k1", "k2"}), package("1-1", "k1")), "no error");
  EXPECT_EQ(refusalOf(package("2-1", "k2", {"k1"}), package("1-1", "k2", {"k1"})), "no error");
}

TEST(PackageRules, CompareDevelopersBeforeVersions) {
  EXPECT_EQ(refusalOf(package("1-1", "x"), package("1-1", "k1")),
            "DeveloperMismatch: The installed package is from another developer: app");
  EXPECT_EQ(refusalOf(package("2-1", "x", {"y"}), package("1-1", "k2", {"y"})),
            "DeveloperMismatch: The installed package is from another developer: app");
  EXPECT_EQ(refusalOf(package("1-1", "k1"), package("1-1", "k2", {"k1"})),
            "DeveloperKeySuperseded: The installed package is signed with a newer key of its developer: app");
}

TEST(PackageRules, RefuseAVersionThatIsNotNewer) {
  EXPECT_EQ(refusalOf(package("1-1", "k1"), package("1-1", "k1")),
            "SamePackageIsInstalled: This version of the package is installed: app 1-1 over 1-1");
  EXPECT_EQ(refusalOf(package("9-1", "k1"), package("2:1-1", "k1")),
            "DowngradeAttempt: A newer version of the package is installed: app 9-1 over 2:1-1");
}

TEST(PackageRules, RefuseANameThatCannotBeUsed) {
  const auto refusalOfName = [](const std::string& name) {
    return Support::errorOf([&] { Acceptance::requireUsableName(name); });
  };
  for (const std::string name : {"", "a b", "a/b", "a->b", "gpg-pubkey"})
    EXPECT_EQ(refusalOfName(name), "BadPackageID: The package has a name that cannot be used: '" + name + "'");
  for (const std::string& name : {std::string("a\xff"), std::string(256, 'a')})
    EXPECT_EQ(refusalOfName(name), "BadPackageID: The package has a name that is too long or not UTF-8");
  for (const std::string& name : {std::string("app"), std::string(255, 'a'), std::string("\xc3\xa9")})
    EXPECT_EQ(refusalOfName(name), "no error");
}

} // namespace
