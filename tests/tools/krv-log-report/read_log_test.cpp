// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-log-report/described.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace {

// Whole logs

TEST(LogReport, HasARowForEachOutcome) {
  EXPECT_EQ(described(installed("a") + failed("No", "b") + unreadable("Couldn't read rpm package", "c") +
                      notNewer("d") + "[I] The package was manually removed by the user: \"" + pathOf("e") + "\"\n" +
                      skipped("e") +
                      "[E] Package developer doesn't match with the developer of an already installed package: \"" +
                      pathOf("f") + "\"\n" + skipped("f") + timeLine),
            "a: installed\n"
            "b: failed (ServiceError): No\n"
            "c: skipped (Unreadable): Couldn't read rpm package\n"
            "d: skipped (NotNewer)\n"
            "e: skipped (RemovedByUser)\n"
            "f: skipped (DeveloperMismatch)\n"
            "complete: 3 s\n");
}

TEST(LogReport, PutsTheOtherLinesOfAPackageIntoItsDetail) {
  EXPECT_EQ(described("[E] Broken\n[E] Failed to query information about installed package: app\n"
                      "[W] Registry record doesn't contains key id\n[W] Bad registry record found: 'a 'b'\n"
                      "[E] Couldn't open registry: \"/var/lib/krv/registry\"\n"
                      "[E] Failed to read records from krv registry\n" +
                      installed("a") +
                      "[E] Failed to parse rpm package version: 1-1\n"
                      "[W] Failed to compare the package version with the version of an already installed package: \"" +
                      pathOf("b") + "\"\n" + failed("No", "b") + timeLine),
            "a: installed: Broken; Failed to query information about installed package: app; Registry record doesn't "
            "contains key id; Bad registry record found: 'a 'b'; Couldn't open registry; Failed to read records from "
            "krv registry\n"
            "b: failed (ServiceError): Failed to parse rpm package version: 1-1; Failed to compare the package version "
            "with the version of an already installed package; No\n"
            "complete: 3 s\n");
}

TEST(LogReport, ShortensALongDetail) {
  EXPECT_EQ(described(failed(std::string(100'000, 'x'), "a") + timeLine),
            "a: failed (ServiceError): " + std::string(500, 'x') + "\ncomplete: 3 s\n");
  EXPECT_EQ(described("[W] Registry record doesn't contains key id\n" + failed(std::string(1000, 'x'), "a")),
            "a: failed (ServiceError): Registry record doesn't contains key id; " + std::string(459, 'x') +
                "...\ncut\n");
}

TEST(LogReport, TellsWhyARunEndedEarly) {
  EXPECT_EQ(described("[E] Failed to open bus (No such file or directory)\n"
                      "[E] Failed to create dbus proxy for KRV service\n"),
            "no-service: Failed to open bus (No such file or directory)\n");
  EXPECT_EQ(described("[E] filesystem error: a\n[E] Couldn't read directory: /b\n"
                      "[E] Failed to get a list of packages to pre-install\n"),
            "no-list: filesystem error: a; Couldn't read directory: /b\n");
  EXPECT_EQ(described(installed("a") + "[E] filesystem error: b\n" + timeLine + "[E] Couldn't create directory: /c\n"),
            "a: installed\naborted: 3 s: filesystem error: b; Couldn't create directory: /c\n");
  EXPECT_EQ(described(installed("a") + timeLine + "[E] std::bad_alloc\n"),
            "a: installed\naborted: 3 s: std::bad_alloc\n");
}

TEST(LogReport, IsNotSureOfSeveralRunsWithoutTheirIds) {
  EXPECT_EQ(described(installed("a") + installed("b") + timeLine + notNewer("a") + installed("c") + timeLine),
            "a: ambiguous\nb: installed\nc: installed\nambiguous: 3 s\n");
  const std::string noService = "[E] a\n[E] Failed to create dbus proxy for KRV service\n";
  EXPECT_EQ(described(noService + noService), "ambiguous: a\n");
}

TEST(LogReport, KeepsTheBytesOfAName) {
  for (const std::string name : {"a b.rpm", "a\"b\\c", "\xff\x1b[31m", "'a'", " ", "[I] x", "a\r", "{path}"})
    EXPECT_EQ(described(installed(name) + timeLine), name + ": installed\ncomplete: 3 s\n");
}

TEST(LogReport, ReadsANameWithLineBreaks) {
  for (const std::string& name :
       {std::string("a\nb"), std::string("\n\n"), std::string("a\n[I] Time spent for pre-installation: 9 seconds\nb"),
        std::string("a\n[E] Failed to get a list of packages to pre-install"), std::string(255, '\n')})
    EXPECT_EQ(described(unreadable("no", name) + installed("z") + timeLine),
              name + ": skipped (Unreadable): no\nz: installed\ncomplete: 3 s\n");
}

// Logs that are not whole

TEST(LogReport, FindsNothingInNothing) {
  EXPECT_EQ(described(""), "");
  EXPECT_EQ(described("\n"), "unknown: 1\n");
}

TEST(LogReport, NamesLinesThatAreNotFromTheTool) {
  EXPECT_EQ(described("hello\n" + installed("a") + "warning: x\n[I] hello\n[W] hello\n[X] hello\n" + timeLine +
                      "[I] Trying to copy content of the symlink target\n"),
            "unknown: 1\nunknown: 3\nunknown: 4\nunknown: 5\nunknown: 6\nunknown: 8\na: installed\ncomplete: 3 s\n");
}

/// The log of many outcomes, cut after each byte, must not show an outcome that the whole log does not have.
TEST(LogReport, IsNeverWrongAboutALogThatWasCut) {
  const std::string log = installed("a\nb") + failed("No", "\"c\"") + unreadable("Bad", "d") + notNewer("e") +
                          "[I] The package was manually removed by the user: \"" + pathOf("f") + "\"\n" + skipped("f") +
                          timeLine;
  const std::string whole = "a\nb: installed\n\"c\": failed (ServiceError): No\nd: skipped (Unreadable): Bad\n"
                            "e: skipped (NotNewer)\nf: skipped (RemovedByUser)\n";
  for (std::size_t size = 1; size < log.size(); ++size) {
    std::string rows = described(log.substr(0, size));
    SCOPED_TRACE(rows);
    rows.erase(std::min(rows.find("unknown: "), rows.size())); // the line that was cut comes first or last
    const std::size_t end = rows.rfind("\ncut");
    const std::string certain = end == rows.npos ? "" : rows.substr(0, end + 1);
    const std::size_t open = certain.find(": unknown (");
    EXPECT_TRUE(whole.starts_with(open == certain.npos ? certain : certain.substr(0, certain.rfind('\n', open) + 1)));
  }
}

TEST(LogReport, SaysThatTheOutcomeIsMissing) {
  const std::string log = notNewer("a");
  EXPECT_EQ(described(log.substr(0, log.find('\n') + 1)), "a: unknown (NotNewer)\ncut\n");
}

TEST(LogReport, FindsTheNextWholeLineAfterACut) {
  const std::string line = installed("a");
  const std::string cut = line.substr(0, line.size() - 3);
  EXPECT_EQ(described(cut + "\n" + installed("b") + timeLine), "unknown: 1\nb: installed\ncomplete: 3 s\n");
  EXPECT_EQ(described(cut + "\n" + timeLine + installed("b")), "unknown: 1\nb: installed\nambiguous: 3 s\n");
  EXPECT_EQ(described(cut + installed("b") + installed("c")), "unknown: 1\nc: installed\ncut\n");
  EXPECT_EQ(described(cut + "\n" + timeLine), "unknown: 1\ncomplete: 3 s\n");
}

TEST(LogReport, GivesUpAPathThatDoesNotEnd) {
  const std::string line = installed("a");
  const std::string cut = line.substr(0, line.size() - 3) + "\n";
  std::string others, expected = "unknown: 1\n";
  for (int i = 0; i < 400; ++i)
    expected += "unknown: " + std::to_string(i + 2) + "\n";
  for (int i = 0; i < 400; ++i)
    others += "x\n";
  EXPECT_EQ(described(cut + others + installed("b")), expected + "b: installed\ncut\n");
}

TEST(LogReport, IsNotSureOfAnOutcomeWithoutItsLines) {
  const std::string skip = skipped("a");
  EXPECT_EQ(described(skip + timeLine), "a: ambiguous\ncomplete: 3 s\n");
  EXPECT_EQ(described("[E] Failed to pre-install package: \"" + pathOf("a") + "\"\n" + timeLine),
            "a: ambiguous\ncomplete: 3 s\n");
}

TEST(LogReport, RefusesPathsElsewhere) {
  for (const std::string path : {"/a", "a", "", "/usr/share/krv/pre-install-apps/",
                                 "/xusr/share/krv/pre-install-apps/a", "/usr/share/krv/pre-install-apps/a/b"})
    EXPECT_EQ(described("[I] The package successfully pre-installed: \"" + path + "\"\n"), "unknown: 1\n") << path;
  EXPECT_EQ(
      described("[I] The package successfully pre-installed: \"usr/share/krv/pre-install-apps/a\"\n" + installed("b")),
      "a: installed\nb: installed\ncut\n");
}

TEST(LogReport, RefusesNumbersThatAreNone) {
  for (const std::string number : {"", "-1", "1.5", "99999999999999999999", " 1"})
    EXPECT_EQ(described("[I] Time spent for pre-installation: " + number + " seconds\n"), "unknown: 1\n") << number;
}

// Texts that look like lines of the tool

TEST(LogReport, AddsTheLinesOfATextToIt) {
  EXPECT_EQ(described("[E] Package installation error: No\nbecause\n[E] Failed to pre-install package: \"" +
                      pathOf("a") + "\"\n" + timeLine),
            "a: failed (ServiceError): No\nbecause\ncomplete: 3 s\n");
}

TEST(LogReport, ShowsTwoOutcomesOfAnEntryAsAmbiguous) {
  EXPECT_EQ(described(failed("No\n" + installed("victim") + "[E] Package installation error: No", "evil") +
                      notNewer("victim") + timeLine),
            "victim: ambiguous: No\nevil: failed (ServiceError): No\ncomplete: 3 s\n");
  EXPECT_EQ(described(notNewer("victim") + failed("No\n" + installed("victim"), "evil") + timeLine),
            "unknown: 5\nvictim: ambiguous\nevil: ambiguous\ncomplete: 3 s\n");
  EXPECT_EQ(described(failed("No\n" + installed("evil") + "[E] Package installation error: No", "evil") + timeLine),
            "evil: ambiguous: No\ncomplete: 3 s\n");
}

TEST(LogReport, ShowsACauseWithoutItsSkipAsAmbiguous) {
  EXPECT_EQ(described("[E] The package version is lower than or equal to the version of an already installed package: "
                      "\"" +
                      pathOf("victim") + "\"\n" + skipped("evil") + installed("victim") + timeLine),
            "victim: ambiguous\nevil: ambiguous\ncomplete: 3 s\n");
}

TEST(LogReport, TakesNoErrorTextForAnOutcome) {
  EXPECT_EQ(described("[E] Failed to pre-install package: \"" + pathOf("victim") +
                      "\"\n[E] Failed to query information about installed package: evil\n" + installed("evil") +
                      failed("No", "victim") + timeLine),
            "victim: ambiguous\nevil: installed: Failed to query information about installed package: evil\n"
            "complete: 3 s\n");
}

TEST(LogReport, TakesNoErrorTextForTheEndOfTheRun) {
  for (const std::string text :
       {"Failed to create dbus proxy for KRV service", "Failed to get a list of packages to pre-install"}) {
    EXPECT_EQ(described("[E] " + text + "\n[E] Failed to query information about installed package: a\n" +
                        installed("a") + timeLine),
              "unknown: 1\na: installed: Failed to query information about installed package: a\ncomplete: 3 s\n");
    EXPECT_EQ(described(installed("a") + "[E] b\n[E] " + text + "\n" + installed("c") + timeLine),
              "unknown: 3\na: installed\nc: installed: b\ncomplete: 3 s\n");
  }
}

} // namespace
