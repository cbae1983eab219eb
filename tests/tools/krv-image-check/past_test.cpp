// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/past.h"
#include "tools/krv-image-check/simulation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ImageCheck::Entry;
using ImageCheck::Finding;
using ImageCheck::Package;
using ImageCheck::SimulationInput;
using Lines = std::vector<std::string>;

struct Keys {
  std::string own = "alice";
  std::vector<std::string> earlier = {};
  std::string subject = "CN=Alice";
};

/// The entry of the package notes.
Entry notes(const std::string& version, const Keys& keys = {}, const std::string& entryName = "notes.rpm") {
  Package package{.entry = entryName,
                  .name = "notes",
                  .version = version,
                  .architecture = "noarch",
                  .sha256 = "digest of " + version,
                  .developer = {},
                  .refusal = {},
                  .files = {},
                  .fullVersion = version};
  package.developer = {.identity = {.keyId = keys.own, .subgroup = "regular", .previousKeyIds = keys.earlier},
                       .subject = keys.subject,
                       .issuer = "CN=ca",
                       .notAfter = {},
                       .isTrusted = true};
  return {.name = entryName, .package = package};
}

Entry named(Entry entry, const std::string& name) {
  entry.name = name + ".rpm";
  entry.package->entry = name + ".rpm";
  entry.package->name = name;
  return entry;
}

SimulationInput update(const std::vector<Entry>& before, const std::vector<Entry>& now) {
  return {.image = {.name = "new", .entries = now}, .previous = {{.name = "old", .entries = before}}, .removed = {}};
}

/// Each finding as "ENTRY: ID: MESSAGE".
Lines findingsOf(const SimulationInput& input) {
  Lines lines;
  for (const Finding& finding : ImageCheck::findingsAboutThePast(input, ImageCheck::simulate(input)))
    lines.push_back(finding.entry.value_or("image") + ": " + finding.id + ": " + finding.message);
  return lines;
}

TEST(Past, HasNoFindingsInAnOrdinaryUpdate) {
  EXPECT_EQ(findingsOf(update({notes("1.0-1"), named(notes("1.0-1"), "maps")},
                              {notes("1.1-1", {"alice-2", {"alice"}}), named(notes("1.0-1"), "maps")})),
            Lines());
}

TEST(Past, HasNoFindingsInTheSameImage) {
  EXPECT_EQ(findingsOf(update({notes("1.0-1")}, {notes("1.0-1")})), Lines());
}

TEST(Past, FindsTwoPackagesOfOneNameOfWhichTheNewerStays) {
  const std::vector<Entry> both = {notes("1.0-1", {}, "a.rpm"), notes("2.0-1", {}, "b.rpm")};
  EXPECT_EQ(
      findingsOf({.image = {.name = "new", .entries = both}, .previous = {}, .removed = {}}),
      Lines{"a.rpm: duplicate-name: these entries are packages with the name notes: a.rpm, b.rpm. A device ends "
            "with notes 2.0-1, whichever comes first (first-boot)."});
}

TEST(Past, SaysBothOutcomesOfTwoPackagesOfOneName) {
  const std::vector<Entry> both = {notes("2.0-1", {"bob"}, "b.rpm"), notes("1.0-1", {"alice"}, "a.rpm")};
  EXPECT_EQ(
      findingsOf({.image = {.name = "new", .entries = both}, .previous = {}, .removed = {}}),
      Lines{"a.rpm: duplicate-name: these entries are packages with the name notes: a.rpm, b.rpm. A device ends "
            "with notes 1.0-1 if it takes a.rpm first, and with notes 2.0-1 if it takes b.rpm first (first-boot)."});
}

TEST(Past, FindsADowngrade) {
  EXPECT_EQ(findingsOf(update({notes("1.10-1")}, {notes("1.9-1")})),
            Lines{"notes.rpm: downgrade: the device has 1.10-1, the image has 1.9-1 (update:old)"});
}

// The tool compares without the epoch and offers the package; the service refuses it.
TEST(Past, FindsADowngradeOfTheEpoch) {
  Entry before = notes("1.0-1");
  before.package->fullVersion = "1:1.0-1";
  EXPECT_EQ(findingsOf(update({before}, {notes("2.0-1")})),
            Lines{"notes.rpm: downgrade: the device has 1.0-1, the image has 2.0-1 (update:old)"});
}

TEST(Past, FindsARebuiltPackage) {
  Entry rebuilt = notes("1.0-1");
  rebuilt.package->sha256 = "another digest";
  const Lines expected = {
      "notes.rpm: rebuilt-same-version: the earlier image has other bytes as notes 1.0-1 (update:old)"};
  EXPECT_EQ(findingsOf(update({notes("1.0-1")}, {rebuilt})), expected);
  rebuilt.package->refusal = Common::ErrorCode::BadPackageArchitecture;
  EXPECT_EQ(findingsOf(update({rebuilt}, {notes("1.0-1")})), Lines());
}

TEST(Past, FindsAnotherDeveloper) {
  EXPECT_EQ(
      findingsOf(update({notes("1.0-1")}, {notes("1.1-1", {"bob", {}, "CN=Bob"})})),
      Lines{"notes.rpm: developer-changed: the device has a package signed with the key alice, this one is signed "
            "with bob (update:old)"});
}

TEST(Past, FindsTheSameDeveloperWithoutRotationAsAnother) {
  EXPECT_EQ(
      findingsOf(update({notes("1.0-1")}, {notes("1.1-1", {"alice-2"})})),
      Lines{"notes.rpm: developer-changed: the device has a package signed with the key alice, this one is signed "
            "with alice-2 (update:old)"});
}

TEST(Past, FindsARotationThatSkipsTheKeyOfTheDevice) {
  EXPECT_EQ(
      findingsOf(update({notes("1.0-1")}, {notes("1.1-1", {"alice-3", {"alice-2"}})})),
      Lines{"notes.rpm: rotation-shortened: the device has a package signed with the key alice, which is not among "
            "the earlier keys of this one (update:old)"});
}

TEST(Past, FindsARotationThatDropsAKeyOfEarlierDevices) {
  EXPECT_EQ(findingsOf(update({notes("1.0-1", {"alice-2", {"alice"}})}, {notes("1.1-1", {"alice-3", {"alice-2"}})})),
            Lines{"notes.rpm: rotation-shortened: the device knows the earlier key alice, which this package no longer "
                  "names (update:old)"});
}

// The certificates need not tell that two keys belong together: a rotation in another image does.
TEST(Past, FindsASkippedKeyByTheRotationOfAnotherImage) {
  SimulationInput input = update({notes("1.0-1")}, {notes("1.2-1", {"alice-3", {"alice-2"}, "CN=Alice B"})});
  input.previous.push_back({.name = "later", .entries = {notes("1.1-1", {"alice-2", {"alice"}})}});
  const std::vector<Finding> findings = ImageCheck::findingsAboutThePast(input, ImageCheck::simulate(input));
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].id, "rotation-shortened");
  EXPECT_EQ(findings[0].about, "notes");
  const std::map<std::string, std::string> data = {{"package", "\"notes\""},
                                                   {"scenarios", "[\"update:old\",\"update:later\"]"}};
  EXPECT_EQ(findings[0].data, data);
}

TEST(Past, FindsADroppedPackage) {
  EXPECT_EQ(findingsOf(update({notes("1.0-1"), named(notes("2.0-1"), "maps")}, {notes("1.0-1")})),
            Lines{"image: package-dropped: devices have maps 2.0-1, and the image has no package of that name"});
}

TEST(Past, FindsARemovedPackageThatReturns) {
  SimulationInput input = update({notes("1.0-1")}, {notes("1.1-1", {"alice-2", {"alice"}})});
  input.removed = {"notes"};
  EXPECT_EQ(
      findingsOf(input),
      Lines{"notes.rpm: removed-returns: the user removed a package that was signed with the key alice, this one is "
            "signed with alice-2 (update:old)"});
}

TEST(Past, HasNoFindingForARemovedPackageThatStaysAway) {
  SimulationInput input = update({notes("1.0-1")}, {notes("1.1-1")});
  input.removed = {"notes"};
  EXPECT_EQ(findingsOf(input), Lines());
}

TEST(Past, PrintsHostileNames) {
  EXPECT_EQ(
      findingsOf(update({named(notes("1.0-1"), "a\x1b[2J\xff")}, {})),
      Lines{"image: package-dropped: devices have a\\x1b[2J\\xff 1.0-1, and the image has no package of that name"});
}

TEST(Past, SaysWhichDevelopersAreUnknown) {
  SimulationInput input = update({}, {notes("1.1-1")});
  input.device.emplace();
  input.device->add({.identity = {.name = "notes", .version = "1.0-1", .developer = {}}, .files = {}});
  input.device->add({.identity = {.name = "system", .version = "1.0-1", .developer = {}}, .files = {}});
  EXPECT_EQ(findingsOf(input), Lines());
  const std::vector<ImageCheck::Simulation> simulations = ImageCheck::simulate(input);
  EXPECT_EQ(simulations.back().scenario.rows.front().reason, "DeveloperUnknown");
  const std::vector<ImageCheck::NotChecked> unknown = ImageCheck::unknownDevelopers(simulations);
  ASSERT_EQ(unknown.size(), 1U);
  EXPECT_EQ(unknown[0].id, "developer-changed");
  EXPECT_EQ(unknown[0].why, "the registry of the device has no record of notes, so its developer is unknown");
}

TEST(Plan, SkipsEveryEntryIfTheListingFails) {
  SimulationInput input = update({}, {notes("1.1-1")});
  input.image.isListable = false;
  const std::vector<ImageCheck::Simulation> simulations = ImageCheck::simulate(input);
  ASSERT_EQ(simulations.size(), 2U);
  EXPECT_EQ(simulations[0].scenario.rows.front().reason, "ListingFailed");
  EXPECT_TRUE(simulations[0].scenario.endState.empty());
}

} // namespace
