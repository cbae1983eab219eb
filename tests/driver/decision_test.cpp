// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/decision.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Common::Rpm::VersionComparison;
using Core::KRV::RegistryRecord;
using Event = RegistryRecord::Event;
using Keys = std::vector<std::string>;

PackageFacts package(const std::string& version = "1.0-1", const std::string& keyId = "k3",
                     const Keys& previous = {"k1", "k2"}) {
  return {"app", version, {keyId, "regular", previous}};
}

RegistryRecord record(Event event, const std::string& name, const std::string& keyId, const Keys& previous = {}) {
  return {event, 5, name, keyId, previous};
}

Reason reasonFor(const std::vector<RegistryRecord>& records) {
  const Verdict verdict = decide(package(), std::nullopt, records);
  EXPECT_EQ(verdict.comparison, std::nullopt);
  return verdict.reason;
}

TEST(Decision, InstallsANewPackage) {
  EXPECT_EQ(reasonFor({}), Reason::NotInstalled);
}

TEST(Decision, HonoursARemovalUnderTheSameKey) {
  EXPECT_EQ(reasonFor({record(Event::Remove, "app", "k3")}), Reason::RemovedByUser);
}

TEST(Decision, HonoursARemovalWithTheKeyAsAnEarlierKey) {
  EXPECT_EQ(reasonFor({record(Event::Remove, "app", "k5", {"k3", "k4"})}), Reason::RemovedByUser);
}

// Only the record's key chain counts, not the file's: a package that is signed again with a later key is a new offer to
// the user.
TEST(Decision, IgnoresARemovalUnderAnEarlierKeyOfTheFile) {
  EXPECT_EQ(reasonFor({record(Event::Remove, "app", "k2", {"k1"})}), Reason::NotInstalled);
}

TEST(Decision, IgnoresARemovalUnderForeignKeys) {
  EXPECT_EQ(reasonFor({record(Event::Remove, "app", "x3", {"x1"})}), Reason::NotInstalled);
}

TEST(Decision, IgnoresInstallationsAndUpdates) {
  EXPECT_EQ(reasonFor({record(Event::Install, "app", "k3"), record(Event::Update, "app", "k3")}), Reason::NotInstalled);
}

TEST(Decision, IgnoresOtherNames) {
  EXPECT_EQ(reasonFor({record(Event::Remove, "ap", "k3"), record(Event::Remove, "apps", "k3"),
                       record(Event::Remove, "App", "k3"), record(Event::Remove, std::string("app\0", 4), "k3")}),
            Reason::NotInstalled);
}

TEST(Decision, FindsARemovalBehindOthers) {
  EXPECT_EQ(reasonFor({record(Event::Remove, "app", "x"), record(Event::Install, "app", "k3"),
                       record(Event::Remove, "app", "k3"), record(Event::Install, "app", "k3")}),
            Reason::RemovedByUser);
}

Verdict verdictFor(const std::string& version, const std::string& installedVersion, const std::string& installedKey) {
  // Remove records do not matter for an installed package.
  const std::vector<RegistryRecord> records{record(Event::Remove, "app", "k3")};
  return decide(package(version), InstalledPackage{installedVersion, installedKey}, records);
}

struct UpdateCase {
  const char* version;
  const char* installedVersion;
  const char* installedKey;
  Reason reason;
  VersionComparison comparison;
};

class Updates : public testing::TestWithParam<UpdateCase> {};

TEST_P(Updates, FollowTheVersionAndThenTheDeveloper) {
  const UpdateCase& c = GetParam();
  const Verdict verdict = verdictFor(c.version, c.installedVersion, c.installedKey);
  EXPECT_EQ(verdict.reason, c.reason) << c.version << " over " << c.installedVersion << " of " << c.installedKey;
  EXPECT_EQ(verdict.comparison, c.comparison);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Updates,
    testing::Values(UpdateCase{"1.0-2", "1.0-1", "k3", Reason::Update, VersionComparison::Newer},
                    UpdateCase{"1.0-2", "1.0-1", "k2", Reason::Update, VersionComparison::Newer},
                    UpdateCase{"1.0-2", "1.0-1", "k1", Reason::Update, VersionComparison::Newer},
                    UpdateCase{"1.0-2", "1.0-1", "x", Reason::DeveloperMismatch, VersionComparison::Newer},
                    UpdateCase{"1.0-2", "1.0-1", "K3", Reason::DeveloperMismatch, VersionComparison::Newer},
                    UpdateCase{"1.0-2", "1.0-1", "", Reason::DeveloperMismatch, VersionComparison::Newer},
                    UpdateCase{"1.0-1", "1.0-1", "k3", Reason::NotNewer, VersionComparison::LowerOrEqual},
                    UpdateCase{"1.0-1", "1.0-2", "k3", Reason::NotNewer, VersionComparison::LowerOrEqual},
                    UpdateCase{"1.0-1", "1.0-2", "x", Reason::NotNewer, VersionComparison::LowerOrEqual},
                    UpdateCase{"1.0-1", "", "k3", Reason::Update, VersionComparison::Unparsable},
                    UpdateCase{"1.0-1", "", "x", Reason::DeveloperMismatch, VersionComparison::Unparsable},
                    UpdateCase{"", "1.0-1", "k1", Reason::Update, VersionComparison::Unparsable}));

TEST(Verdict, SaysWhetherInstallationIsDue) {
  EXPECT_TRUE((Verdict{Reason::NotInstalled}).isInstallationDue());
  EXPECT_TRUE((Verdict{Reason::Update}).isInstallationDue());
  EXPECT_FALSE((Verdict{Reason::RemovedByUser}).isInstallationDue());
  EXPECT_FALSE((Verdict{Reason::NotNewer}).isInstallationDue());
  EXPECT_FALSE((Verdict{Reason::DeveloperMismatch}).isInstallationDue());
}

} // namespace
