// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/locations.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <set>
#include <string>

namespace {

namespace fs = std::filesystem;
namespace Filesystem = Common::Filesystem;
using Support::CapturedLog;
using Support::errorOf;
using Support::ScopedEnvironment;
using Support::TempDirectory;
using testing::MatchesRegex;

TEST(HomeDirectory, IsTheUnchangedValueOfTheVariable) {
  const CapturedLog log;
  for (const std::string value : {"/home/alice", "", "relative/../x//", "/no such/place", " "}) {
    const ScopedEnvironment home("HOME", value);
    EXPECT_EQ(Filesystem::homeDirectory().native(), value);
  }
  EXPECT_EQ(log.text(), "");
}

TEST(HomeDirectory, IsAnErrorWithoutTheVariable) {
  const CapturedLog log;
  const ScopedEnvironment home("HOME", std::nullopt);
  EXPECT_EQ(errorOf(Filesystem::homeDirectory), "Filesystem: Couldn't locate current user home directory");
  EXPECT_EQ(log.text(), "");
}

/// The output of the probe on a system whose group database is `groups`.
std::string homesWith(const std::string& groups, const std::optional<std::string>& root) {
  const TempDirectory directory;
  Support::writeFile(directory / "group", groups);
  // The user database is not read: alice's own home and primary group do not matter.
  Support::writeFile(directory / "passwd", "alice:x:1000:100::/elsewhere:/bin/sh\n"
                                           "carol:x:1001:100::/home/carol:/bin/sh\n");
  const char* asan = std::getenv("ASAN_OPTIONS");
  const Support::ProcessResult result =
      Support::run({Support::program("filesystem_users_probe")},
                   {{"LD_PRELOAD", "libnss_wrapper.so"},
                    {"NSS_WRAPPER_PASSWD", directory / "passwd"},
                    {"NSS_WRAPPER_GROUP", directory / "group"},
                    {"KRV_ROOT_FS", root},
                    // AddressSanitizer refuses by default to start behind another preloaded library.
                    {"ASAN_OPTIONS", (asan != nullptr ? asan + std::string(":") : "") + "verify_asan_link_order=0"}});
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  return result.output;
}

TEST(UsersHomeDirectories, FollowTheOrderOfTheGroupMembers) {
  EXPECT_EQ(homesWith("wheel:x:10:bob\nusers:x:100:alice,bob\n", std::nullopt), "/home/alice\n/home/bob\nno error\n");
  EXPECT_EQ(homesWith("users:x:100:bob,alice\n", std::nullopt), "/home/bob\n/home/alice\nno error\n");
}

TEST(UsersHomeDirectories, KeepDuplicatesAndUnknownUsers) {
  EXPECT_EQ(homesWith("users:x:100:alice,nobody-knows,alice\n", std::nullopt),
            "/home/alice\n/home/nobody-knows\n/home/alice\nno error\n");
}

TEST(UsersHomeDirectories, AreBelowTheRoot) {
  EXPECT_EQ(homesWith("users:x:100:alice\n", "/mnt/image"), "/mnt/image/home/alice\nno error\n");
  EXPECT_EQ(homesWith("users:x:100:alice\n", "/mnt/image/"), "/mnt/image/home/alice\nno error\n");
  EXPECT_EQ(homesWith("users:x:100:alice\n", ""), "home/alice\nno error\n");
}

TEST(UsersHomeDirectories, AreEmptyForAGroupWithoutMembers) {
  EXPECT_EQ(homesWith("users:x:100:\n", std::nullopt), "no error\n");
}

TEST(UsersHomeDirectories, AreAnErrorWithoutTheGroup) {
  EXPECT_EQ(homesWith("user:x:100:alice\nUsers:x:101:alice\n", std::nullopt),
            "Internal: Couldn't retrieve information about 'users' group\n");
}

TEST(TempDirectory, IsTakenFromTheEnvironment) {
  const CapturedLog log;
  const TempDirectory directory;
  const ScopedEnvironment temporary("TMPDIR", directory.path());
  EXPECT_EQ(Filesystem::tempDirectory(), directory.path());
  EXPECT_EQ(log.text(), "");
}

TEST(TempDirectory, IsTmpByDefault) {
  const ScopedEnvironment first("TMPDIR", std::nullopt);
  const ScopedEnvironment second("TMP", std::nullopt);
  const ScopedEnvironment third("TEMP", std::nullopt);
  const ScopedEnvironment fourth("TEMPDIR", std::nullopt);
  EXPECT_EQ(Filesystem::tempDirectory(), "/tmp");
}

TEST(TempDirectory, IsAnErrorIfItIsNotADirectory) {
  const TempDirectory directory;
  Support::writeFile(directory / "file", "");
  for (const char* name : {"missing", "file"}) {
    const ScopedEnvironment temporary("TMPDIR", directory / name);
    const CapturedLog log;
    EXPECT_EQ(errorOf(Filesystem::tempDirectory), "Filesystem: Couldn't retrieve temp directory path");
    EXPECT_EQ(log.text(), "[E] " + Support::reasonOf([] { return fs::temp_directory_path(); }) + "\n");
  }
}

TEST(UniquePath, ReplacesOnlyPercentSigns) {
  EXPECT_THAT(Filesystem::uniquePath("pkg-%%%%.tmp").native(), MatchesRegex("pkg-[0-9a-f]{4}\\.tmp"));
  EXPECT_THAT(Filesystem::uniquePath("/a%/../b//%c\xff \"\\/%").native(),
              MatchesRegex("/a[0-9a-f]/\\.\\./b//[0-9a-f]c\xff \"\\\\/[0-9a-f]"));
  EXPECT_THAT(Filesystem::uniquePath(std::string(300, '%')).native(), MatchesRegex("[0-9a-f]{300}"));
}

TEST(UniquePath, KeepsAModelWithoutPercentSigns) {
  for (const char* model : {"", "plain", "/a/b", "ABCDEF"})
    EXPECT_EQ(Filesystem::uniquePath(model).native(), model);
}

TEST(UniquePath, UsesEveryDigitAtEveryPlace) {
  // The chance that one of 16 digits is missing at one of 3 places after 2,000 draws is about 10^-54.
  std::set<char> digits[3];
  for (int draw = 0; draw < 2000; ++draw) {
    const std::string name = Filesystem::uniquePath("%%%").native();
    for (std::size_t place = 0; place < 3; ++place)
      digits[place].insert(name.at(place));
  }
  for (const std::set<char>& seen : digits)
    EXPECT_EQ(std::string(seen.begin(), seen.end()), "0123456789abcdef");
}

TEST(UniquePath, DiffersFromCallToCall) {
  std::set<fs::path> names;
  for (int draw = 0; draw < 1000; ++draw)
    names.insert(Filesystem::uniquePath("%%%%%%%%%%%%%%%%"));
  EXPECT_EQ(names.size(), 1000U);
}

} // namespace
