// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/listing.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/files/special_files.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <type_traits>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Common::Filesystem::listDirectory;
using Common::Filesystem::ListOptions;
using Support::CapturedLog;
using Support::errorOf;
using Support::reasonOf;
using Support::TempDirectory;
using Support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr ListOptions allOptions[] = {ListOptions::None, ListOptions::Recursive, ListOptions::SortedByTime,
                                      ListOptions::Recursive | ListOptions::SortedByTime};

void setTime(const fs::path& path, std::chrono::seconds time) {
  fs::last_write_time(path, fs::file_time_type(time));
}

/// Creates a file whose modification time is `time` after the epoch of the file clock, in the year 2174.
void writeFileOf(const fs::path& path, std::chrono::seconds time) {
  writeFile(path, "");
  setTime(path, time);
}

long positionOf(const std::vector<fs::path>& paths, const fs::path& path) {
  return std::ranges::find(paths, path) - paths.begin();
}

/// Expects the listing to fail with only the log line `reason`.
void expectFailure(const fs::path& directory, ListOptions options, const std::string& reason) {
  const CapturedLog log;
  EXPECT_EQ(errorOf([&] { listDirectory(directory, options); }),
            "Filesystem: Couldn't read directory: " + directory.string());
  EXPECT_EQ(log.text(), "[E] " + reason + "\n");
}

TEST(ListOptions, AreASetOfBits) {
  EXPECT_EQ(static_cast<std::uint32_t>(ListOptions::None), 0U);
  EXPECT_EQ(static_cast<std::uint32_t>(ListOptions::Recursive), 1U);
  EXPECT_EQ(static_cast<std::uint32_t>(ListOptions::SortedByTime), 2U);
  EXPECT_EQ(static_cast<std::uint32_t>(ListOptions::Recursive | ListOptions::SortedByTime), 3U);
  EXPECT_TRUE((std::is_same_v<std::underlying_type_t<ListOptions>, std::uint32_t>));
}

TEST(Listing, IsEmptyForAnEmptyDirectory) {
  const TempDirectory directory;
  const CapturedLog log;
  for (const ListOptions options : allOptions)
    EXPECT_THAT(listDirectory(directory.path(), options), IsEmpty());
  EXPECT_EQ(log.text(), "");
}

TEST(Listing, FailsForAMissingDirectory) {
  const TempDirectory directory;
  const fs::path missing = directory / "missing";
  expectFailure(missing, ListOptions::None, reasonOf([&] { fs::directory_iterator{missing}; }));
  expectFailure(missing, ListOptions::Recursive, reasonOf([&] { fs::recursive_directory_iterator{missing}; }));
  expectFailure("", ListOptions::None, reasonOf([&] { fs::directory_iterator{""}; }));
}

TEST(Listing, FailsForAFile) {
  const TempDirectory directory;
  const fs::path file = directory / "file";
  writeFile(file, "");
  expectFailure(file, ListOptions::None, reasonOf([&] { fs::directory_iterator{file}; }));
  expectFailure(file, ListOptions::Recursive, reasonOf([&] { fs::recursive_directory_iterator{file}; }));
}

TEST(Listing, NamesTheDirectoryAsPassed) {
  const fs::path missing = TempDirectory().path() / "./missing//x/";
  expectFailure(missing, ListOptions::None, reasonOf([&] { fs::directory_iterator{missing}; }));
}

TEST(Listing, FailsForAnUnreadableDirectory) {
  const TempDirectory directory;
  fs::create_directory(directory / "closed");
  const Support::OrdinaryUser user(directory.path());
  const Support::ScopedPermissions permissions(directory / "closed", fs::perms::none);
  const std::string reason = reasonOf([&] { fs::directory_iterator{directory / "closed"}; });
  ASSERT_NE(reason, "no exception");
  expectFailure(directory / "closed", ListOptions::None, reason);
}

TEST(Listing, FailsForAnUnreadableSubdirectory) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  fs::create_directory(directory / "closed");
  const Support::OrdinaryUser user(directory.path());
  const Support::ScopedPermissions permissions(directory / "closed", fs::perms::none);
  const std::string reason = reasonOf([&] {
    for ([[maybe_unused]] const auto& entry : fs::recursive_directory_iterator(directory.path()))
      ;
  });
  ASSERT_NE(reason, "no exception");
  expectFailure(directory.path(), ListOptions::Recursive, reason);
  EXPECT_THAT(listDirectory(directory.path(), ListOptions::None),
              UnorderedElementsAre(directory / "file", directory / "closed"));
}

TEST(Listing, FailsForADanglingSymlink) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  fs::create_symlink("missing", directory / "link");
  const std::string reason = reasonOf([&] { return fs::last_write_time(directory / "link"); });
  for (const ListOptions options : allOptions)
    expectFailure(directory.path(), options, reason);
}

TEST(Listing, FailsForADanglingSymlinkInASubdirectoryOnlyIfRecursive) {
  const TempDirectory directory;
  fs::create_directory(directory / "sub");
  fs::create_symlink("missing", directory / "sub/link");
  expectFailure(directory.path(), ListOptions::Recursive,
                reasonOf([&] { return fs::last_write_time(directory / "sub/link"); }));
  EXPECT_THAT(listDirectory(directory.path(), ListOptions::None), ElementsAre(directory / "sub"));
}

TEST(Listing, KeepsEntriesOfEveryType) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  writeFile(directory / ".hidden", "");
  fs::create_directory(directory / "directory");
  fs::create_symlink("file", directory / "link");
  fs::create_symlink("directory", directory / "directory link");
  Support::makeFifo(directory / "fifo");
  Support::makeSocket(directory / "socket");
  const CapturedLog log;
  for (const ListOptions options : allOptions)
    EXPECT_THAT(listDirectory(directory.path(), options),
                UnorderedElementsAre(directory / "file", directory / ".hidden", directory / "directory",
                                     directory / "link", directory / "directory link", directory / "fifo",
                                     directory / "socket"));
  EXPECT_EQ(log.text(), "");
}

TEST(Listing, KeepsNamesByteForByte) {
  const TempDirectory directory;
  const std::string names[] = {"a b", "\"quoted\"", "back\\slash", "new\nline", "\xff\xfe", "-rf"};
  std::vector<std::string> expected;
  for (const std::string& name : names) {
    writeFile(directory / name, "");
    expected.push_back((directory / name).string());
  }
  std::vector<std::string> listed;
  for (const fs::path& path : listDirectory(directory.path(), ListOptions::None))
    listed.push_back(path.string());
  EXPECT_THAT(listed, testing::UnorderedElementsAreArray(expected));
}

TEST(Listing, IsOneLevelDeepByDefault) {
  const TempDirectory directory;
  writeFile(directory / "sub/file", "");
  EXPECT_THAT(listDirectory(directory.path(), ListOptions::None), ElementsAre(directory / "sub"));
}

TEST(Listing, DescendsIfRecursive) {
  const TempDirectory directory;
  writeFile(directory / "one/two/deep", "");
  writeFile(directory / "one/shallow", "");
  writeFile(directory / "top", "");
  const std::vector<fs::path> paths = listDirectory(directory.path(), ListOptions::Recursive);
  EXPECT_THAT(paths, UnorderedElementsAre(directory / "one", directory / "one/two", directory / "one/two/deep",
                                          directory / "one/shallow", directory / "top"));
  EXPECT_LT(positionOf(paths, directory / "one"), positionOf(paths, directory / "one/shallow"));
  EXPECT_EQ(positionOf(paths, directory / "one/two") + 1, positionOf(paths, directory / "one/two/deep"));
}

TEST(Listing, DoesNotFollowSymlinksToSubdirectories) {
  const TempDirectory directory;
  writeFile(directory / "outside/file", "");
  fs::create_directory(directory / "listed");
  fs::create_directory_symlink(directory / "outside", directory / "listed/link");
  fs::create_directory_symlink("..", directory / "listed/loop");
  EXPECT_THAT(listDirectory(directory / "listed", ListOptions::Recursive),
              UnorderedElementsAre(directory / "listed/link", directory / "listed/loop"));
}

TEST(Listing, FollowsASymlinkAsTheListedDirectory) {
  const TempDirectory directory;
  writeFile(directory / "real/file", "");
  fs::create_directory_symlink("real", directory / "link");
  EXPECT_THAT(listDirectory(directory / "link", ListOptions::None), ElementsAre(directory / "link/file"));
}

TEST(Listing, JoinsNamesToTheDirectoryAsPassed) {
  const TempDirectory directory;
  writeFile(directory / "sub/file", "");
  const std::string relative = fs::relative(directory.path()).string();
  for (const std::string& passed : {directory.path().string() + "/", directory.path().string() + "/.", relative}) {
    const std::string separator = passed.ends_with('/') ? "" : "/";
    std::vector<std::string> listed;
    for (const fs::path& path : listDirectory(passed, ListOptions::Recursive))
      listed.push_back(path.string());
    EXPECT_THAT(listed, ElementsAre(passed + separator + "sub", passed + separator + "sub/file"));
  }
}

TEST(Listing, KeepsTheOrderOfTheDirectory) {
  const TempDirectory directory;
  for (int i = 0; i < 50; ++i)
    writeFileOf(directory / std::to_string(i), std::chrono::seconds(-4'000'000'000 + (i * 7919) % 50));
  std::vector<fs::path> expected;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory.path()))
    expected.push_back(entry.path());
  EXPECT_EQ(listDirectory(directory.path(), ListOptions::None), expected);
}

TEST(Listing, SortsFromTheOldestToTheNewest) {
  using std::chrono::seconds;
  const TempDirectory directory;
  // The order of the directory differs from at least one of these assignments.
  for (const std::vector<const char*>& names : {std::vector{"a", "b", "c"}, {"c", "b", "a"}, {"b", "c", "a"}}) {
    writeFileOf(directory / names[0], seconds(-6'000'000'010));
    writeFileOf(directory / names[1], seconds(-6'000'000'030));
    writeFileOf(directory / names[2], seconds(-6'000'000'020));
    EXPECT_THAT(listDirectory(directory.path(), ListOptions::SortedByTime),
                ElementsAre(directory / names[1], directory / names[2], directory / names[0]));
  }
}

TEST(Listing, SortsTimesBeforeAndAfterTheEpoch) {
  using std::chrono::seconds;
  const TempDirectory directory;
  writeFileOf(directory / "after", seconds(1000));
  writeFileOf(directory / "zero", seconds(0));
  writeFileOf(directory / "before", seconds(-1000));
  writeFileOf(directory / "1960", seconds(-6'750'000'000));
  if (fs::last_write_time(directory / "after") != fs::file_time_type(seconds(1000)))
    GTEST_SKIP() << "this file system cannot keep times after the year 2174";
  EXPECT_THAT(listDirectory(directory.path(), ListOptions::SortedByTime),
              ElementsAre(directory / "1960", directory / "before", directory / "zero", directory / "after"));
}

TEST(Listing, SortsByTheTimeOfASymlinksTarget) {
  using std::chrono::seconds;
  const TempDirectory directory;
  const TempDirectory elsewhere;
  writeFileOf(elsewhere / "old", seconds(-6'000'000'030));
  writeFileOf(directory / "middle", seconds(-6'000'000'020));
  writeFileOf(elsewhere / "new", seconds(-6'000'000'010));
  fs::create_symlink(elsewhere / "old", directory / "to old");
  fs::create_symlink(elsewhere / "new", directory / "to new");
  EXPECT_THAT(listDirectory(directory.path(), ListOptions::SortedByTime),
              ElementsAre(directory / "to old", directory / "middle", directory / "to new"));
}

TEST(Listing, SortsAcrossSubdirectoriesAndIgnoresUnknownOptions) {
  using std::chrono::seconds;
  const TempDirectory directory;
  writeFileOf(directory / "sub/newest", seconds(-6'000'000'010));
  writeFileOf(directory / "middle", seconds(-6'000'000'020));
  writeFileOf(directory / "sub/older", seconds(-6'000'000'030));
  setTime(directory / "sub", seconds(-6'000'000'015));
  const std::vector<fs::path> expected = {directory / "sub/older", directory / "middle", directory / "sub",
                                          directory / "sub/newest"};
  EXPECT_EQ(listDirectory(directory.path(), ListOptions::Recursive | ListOptions::SortedByTime), expected);
  EXPECT_EQ(listDirectory(directory.path(), static_cast<ListOptions>(0xffffffff)), expected);
  EXPECT_THAT(listDirectory(directory.path(), static_cast<ListOptions>(0xfffffffe)),
              ElementsAre(directory / "middle", directory / "sub"));
  EXPECT_THAT(listDirectory(directory.path(), static_cast<ListOptions>(0xfffffffc)),
              UnorderedElementsAre(directory / "middle", directory / "sub"));
}

TEST(Listing, AllocatesNoSpareMemory) {
  const TempDirectory directory;
  for (int i = 0; i < 33; ++i)
    writeFile(directory / std::to_string(i), "");
  EXPECT_EQ(listDirectory(directory.path(), ListOptions::None).capacity(), 33U);
}

} // namespace
