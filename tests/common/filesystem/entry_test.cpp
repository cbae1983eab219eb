// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/entry.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/files/special_files.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/temp_directory.h"
#include "tests/support/process/working_directory.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
namespace Filesystem = Common::Filesystem;
using Support::CapturedLog;
using Support::errorOf;
using Support::reasonOf;
using Support::ScopedWorkingDirectory;
using Support::TempDirectory;
using Support::writeFile;

constexpr fs::perms ownerAll = fs::perms::owner_all;

/// The queries that never throw, each with the std::filesystem function that it wraps.
struct Query {
  const char* name;
  std::function<bool(const fs::path&)> ask;
  std::function<bool(const fs::path&)> library;
};

const std::vector<Query>& queries() {
  using Path = const fs::path&;
  static const std::vector<Query> all = {
      {"exists", Filesystem::exists, [](Path path) { return fs::exists(path); }},
      {"isDirectory", Filesystem::isDirectory, [](Path path) { return fs::is_directory(path); }},
      {"isRegularFile", Filesystem::isRegularFile, [](Path path) { return fs::is_regular_file(path); }},
      {"isSocket", Filesystem::isSocket, [](Path path) { return fs::is_socket(path); }},
      {"isSymlink", Filesystem::isSymlink, [](Path path) { return fs::is_symlink(path); }},
  };
  return all;
}

/// The names of the queries that return true.
std::string answersFor(const fs::path& path) {
  std::string names;
  for (const Query& query : queries())
    if (query.ask(path))
      names += std::string(names.empty() ? "" : " ") + query.name;
  return names;
}

/// Expects the action to fail: `reason` in the log, `message` in the error.
void expectFailure(const std::function<void()>& action, const std::string& reason, const std::string& message) {
  ASSERT_NE(reason, "no exception");
  const CapturedLog log;
  EXPECT_EQ(errorOf(action), "Filesystem: " + message);
  EXPECT_EQ(log.text(), "[E] " + reason + "\n");
}

/// Expects the action to throw without a log line.
void expectRefusal(const std::function<void()>& action, const std::string& message) {
  const CapturedLog log;
  EXPECT_EQ(errorOf(action), "Filesystem: " + message);
  EXPECT_EQ(log.text(), "");
}

TEST(Entry, QueriesDistinguishTheTypes) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  fs::create_directory(directory / "directory");
  Support::makeFifo(directory / "fifo");
  Support::makeSocket(directory / "socket");
  for (const char* name : {"file", "directory", "fifo", "socket", "missing"})
    fs::create_symlink(name, directory / ("to " + std::string(name)));

  const CapturedLog log;
  EXPECT_EQ(answersFor(directory / "file"), "exists isRegularFile");
  EXPECT_EQ(answersFor(directory / "directory"), "exists isDirectory");
  EXPECT_EQ(answersFor(directory / "fifo"), "exists");
  EXPECT_EQ(answersFor(directory / "socket"), "exists isSocket");
  EXPECT_EQ(answersFor("/dev/null"), "exists");
  EXPECT_EQ(answersFor(directory / "to file"), "exists isRegularFile isSymlink");
  EXPECT_EQ(answersFor(directory / "to directory"), "exists isDirectory isSymlink");
  EXPECT_EQ(answersFor(directory / "to fifo"), "exists isSymlink");
  EXPECT_EQ(answersFor(directory / "to socket"), "exists isSocket isSymlink");
  EXPECT_EQ(answersFor(directory / "to missing"), "isSymlink");
  EXPECT_EQ(answersFor(directory / "missing"), "");
  EXPECT_EQ(answersFor(directory / "missing/below"), "");
  EXPECT_EQ(answersFor(directory / "file/below"), "");
  EXPECT_EQ(answersFor(""), "");
  EXPECT_EQ(log.text(), "");
}

TEST(Entry, QueriesLogAnOverlongNameAndReturnFalse) {
  const TempDirectory directory;
  const fs::path path = directory / std::string(300, 'x');
  for (const Query& query : queries()) {
    const CapturedLog log;
    EXPECT_FALSE(query.ask(path)) << query.name;
    EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { query.library(path); }) + "\n") << query.name;
  }
}

TEST(Entry, QueriesLogAnUnsearchableDirectoryAndReturnFalse) {
  const TempDirectory directory;
  writeFile(directory / "closed/file", "");
  const Support::OrdinaryUser user(directory.path());
  const Support::ScopedPermissions permissions(directory / "closed", fs::perms::owner_read);
  for (const Query& query : queries()) {
    const std::string reason = reasonOf([&] { query.library(directory / "closed/file"); });
    ASSERT_NE(reason, "no exception");
    const CapturedLog log;
    EXPECT_FALSE(query.ask(directory / "closed/file")) << query.name;
    EXPECT_EQ(log.text(), "[E] " + reason + "\n") << query.name;
  }
}

TEST(Entry, QueriesThatFollowSymlinksLogALoopAndReturnFalse) {
  const TempDirectory directory;
  fs::create_symlink("loop", directory / "loop");
  for (const Query& query : queries()) {
    const bool follows = std::string(query.name) != "isSymlink";
    const CapturedLog log;
    EXPECT_EQ(query.ask(directory / "loop"), !follows) << query.name;
    EXPECT_EQ(log.text(), follows ? "[E] " + reasonOf([&] { query.library(directory / "loop"); }) + "\n" : "")
        << query.name;
  }
}

TEST(Entry, HasPermissionsIfOneBitIsSet) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  fs::permissions(directory / "file", static_cast<fs::perms>(0644));
  fs::create_symlink("file", directory / "link");
  struct Case {
    unsigned mask;
    bool expected;
  };
  for (const Case& each : {Case{0, false}, Case{0100, false}, Case{0020, false}, Case{0133, false}, Case{07000, false},
                           Case{0200, true}, Case{0004, true}, Case{0300, true}, Case{0777, true}}) {
    EXPECT_EQ(Filesystem::hasPermissions(directory / "file", static_cast<fs::perms>(each.mask)), each.expected)
        << each.mask;
    EXPECT_EQ(Filesystem::hasPermissions(directory / "link", static_cast<fs::perms>(each.mask)), each.expected)
        << each.mask;
  }
}

TEST(Entry, OnlyRegularFilesHavePermissions) {
  const TempDirectory directory;
  fs::create_directory(directory / "directory");
  fs::create_symlink("directory", directory / "to directory");
  fs::create_symlink("missing", directory / "to missing");
  Support::makeFifo(directory / "fifo");
  const CapturedLog log;
  for (const char* name : {"directory", "to directory", "to missing", "fifo", "missing"})
    EXPECT_FALSE(Filesystem::hasPermissions(directory / name, fs::perms::mask)) << name;
  EXPECT_EQ(log.text(), "");
}

TEST(Entry, HasPermissionsThrowsWhenStatFails) {
  const TempDirectory directory;
  const fs::path loop = directory / "loop";
  fs::create_symlink("loop", loop);
  expectFailure([&] { Filesystem::hasPermissions(loop, ownerAll); }, reasonOf([&] { return fs::status(loop); }),
                "Couldn't get permissions for: " + loop.string());
}

TEST(Entry, TellsEmptyDirectoriesFromOthers) {
  const TempDirectory directory;
  fs::create_directory(directory / "empty");
  writeFile(directory / "full/file", "");
  fs::create_symlink("empty", directory / "to empty");
  fs::create_symlink("full", directory / "to full");
  const CapturedLog log;
  EXPECT_TRUE(Filesystem::isEmptyDirectory(directory / "empty"));
  EXPECT_TRUE(Filesystem::isEmptyDirectory(directory / "to empty"));
  EXPECT_FALSE(Filesystem::isEmptyDirectory(directory / "full"));
  EXPECT_FALSE(Filesystem::isEmptyDirectory(directory / "to full"));
  EXPECT_EQ(log.text(), "");
}

constexpr const char* notADirectory =
    "Attempt to check if the path is an empty directory, but the path is not a directory";

TEST(Entry, IsEmptyDirectoryThrowsForOtherTypes) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  fs::create_symlink("missing", directory / "dangling");
  for (const char* name : {"file", "dangling", "missing"})
    expectRefusal([&] { Filesystem::isEmptyDirectory(directory / name); }, notADirectory);
}

TEST(Entry, IsEmptyDirectoryThrowsWhenStatFails) {
  const TempDirectory directory;
  const fs::path loop = directory / "loop";
  fs::create_symlink("loop", loop);
  expectFailure([&] { Filesystem::isEmptyDirectory(loop); }, reasonOf([&] { return fs::is_directory(loop); }),
                notADirectory);
}

TEST(Entry, AnUnreadableDirectoryCountsAsNotEmpty) {
  const TempDirectory directory;
  const fs::path closed = directory / "closed";
  fs::create_directory(closed);
  const Support::OrdinaryUser user(directory.path());
  const Support::ScopedPermissions permissions(closed, fs::perms::none);
  const std::string reason = reasonOf([&] { return fs::is_empty(closed); });
  ASSERT_NE(reason, "no exception");
  const CapturedLog log;
  EXPECT_FALSE(Filesystem::isEmptyDirectory(closed));
  EXPECT_EQ(log.text(), "[E] " + reason + "\n");
}

TEST(Entry, RemovesOnlyTheGivenFileOrTree) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  writeFile(directory / "tree/below/file", "");
  writeFile(directory / "kept/file", "");
  fs::create_directory_symlink(directory / "kept", directory / "tree/link");
  fs::create_directory_symlink("kept", directory / "link");
  fs::create_symlink("missing", directory / "dangling");
  const CapturedLog log;
  for (const char* name : {"file", "tree", "link", "dangling"})
    Filesystem::remove(directory / name);
  EXPECT_EQ(log.text(), "");
  std::vector<fs::path> left;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory.path()))
    left.push_back(entry.path());
  EXPECT_EQ(left, (std::vector<fs::path>{directory / "kept", directory / "kept/file"}));
}

TEST(Entry, RemovesAMissingEntryWithoutError) {
  const TempDirectory directory;
  const CapturedLog log;
  Filesystem::remove(directory / "missing");
  Filesystem::remove(directory / "missing/below");
  EXPECT_EQ(log.text(), "");
}

TEST(Entry, ReportsARemovalWithoutPermission) {
  const TempDirectory directory;
  writeFile(directory / "closed/file", "");
  const Support::OrdinaryUser user(directory.path());
  const Support::ScopedPermissions permissions(directory / "closed", fs::perms::owner_read | fs::perms::owner_exec);
  expectFailure([&] { Filesystem::remove(directory / "closed"); },
                reasonOf([&] { fs::remove_all(directory / "closed"); }),
                "Couldn't remove filesystem entry: " + (directory / "closed").string());
  EXPECT_TRUE(fs::exists(directory / "closed/file"));
}

TEST(Entry, CreatesDirectoriesWithTheirParents) {
  const TempDirectory directory;
  const CapturedLog log;
  Filesystem::createDirectories(directory / "a/b/c");
  Filesystem::createDirectories(directory / "a/b/c");
  Filesystem::createDirectories(directory / "d/");
  EXPECT_TRUE(fs::is_directory(directory / "a/b/c"));
  EXPECT_TRUE(fs::is_directory(directory / "d"));
  EXPECT_EQ(log.text(), "");
}

TEST(Entry, ReportsADirectoryThatCannotBeCreated) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  for (const fs::path& path : {directory / "file", directory / "file/below", fs::path()})
    expectFailure([&] { Filesystem::createDirectories(path); }, reasonOf([&] { fs::create_directories(path); }),
                  "Couldn't create directory: " + path.string());
}

TEST(Entry, ReplacesPermissions) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  fs::create_symlink("file", directory / "link");
  fs::permissions(directory / "file", static_cast<fs::perms>(0777));
  Filesystem::setPermissions(directory / "file", static_cast<fs::perms>(0640));
  EXPECT_EQ(fs::status(directory / "file").permissions(), static_cast<fs::perms>(0640));
  Filesystem::setPermissions(directory / "link", static_cast<fs::perms>(04711));
  EXPECT_EQ(fs::status(directory / "file").permissions(), static_cast<fs::perms>(04711));
}

TEST(Entry, ReportsPermissionsThatCannotBeSet) {
  const fs::path missing = TempDirectory().path() / "missing";
  expectFailure([&] { Filesystem::setPermissions(missing, ownerAll); },
                reasonOf([&] { fs::permissions(missing, ownerAll); }),
                "Couldn't set permissions for " + missing.string());
}

TEST(Entry, ReadsTheTargetOfASymlink) {
  const TempDirectory directory;
  for (const std::string text : {"missing", "../up//and/./down/", "/absolute", "a b\"\\"}) {
    fs::create_symlink(text, directory / "link");
    EXPECT_EQ(Filesystem::readSymlink(directory / "link").native(), text);
    fs::remove(directory / "link");
  }
}

TEST(Entry, ReportsAnUnreadableSymlink) {
  const TempDirectory directory;
  writeFile(directory / "file", "");
  for (const char* name : {"file", "missing"})
    expectFailure([&] { Filesystem::readSymlink(directory / name); },
                  reasonOf([&] { return fs::read_symlink(directory / name); }),
                  "Couldn't read symlink: " + (directory / name).string());
}

TEST(Entry, MovesOverAnExistingFile) {
  const TempDirectory directory;
  writeFile(directory / "from", "new");
  writeFile(directory / "to", "old");
  const CapturedLog log;
  Filesystem::move(directory / "from", directory / "to");
  EXPECT_EQ(Support::readFile(directory / "to"), "new");
  EXPECT_FALSE(fs::exists(directory / "from"));
  EXPECT_EQ(log.text(), "");
}

TEST(Entry, MovesIntoAMissingDirectory) {
  const TempDirectory directory;
  writeFile(directory / "from", "content");
  Filesystem::move(directory / "from", directory / "a/b/to");
  EXPECT_EQ(Support::readFile(directory / "a/b/to"), "content");
}

TEST(Entry, MovesASymlinkAndNotItsTarget) {
  const TempDirectory directory;
  writeFile(directory / "target", "");
  fs::create_symlink("target", directory / "link");
  Filesystem::move(directory / "link", directory / "moved");
  EXPECT_EQ(fs::read_symlink(directory / "moved"), "target");
  EXPECT_TRUE(fs::exists(directory / "target"));
}

TEST(Entry, CreatesNoParentsForABareName) {
  const TempDirectory directory;
  writeFile(directory / "from", "content");
  const ScopedWorkingDirectory working(directory.path());
  const CapturedLog log;
  Filesystem::move("from", "to");
  Filesystem::createSymlink("to", "symbolic");
  Filesystem::createHardlink("to", "hard");
  EXPECT_EQ(Support::readFile("symbolic"), "content");
  EXPECT_EQ(fs::hard_link_count("hard"), 2U);
  EXPECT_EQ(log.text(), "");
}

TEST(Entry, ReportsAFailedMoveAndKeepsCreatedParents) {
  const TempDirectory directory;
  const fs::path from = directory / "missing";
  const fs::path to = directory / "a/to";
  fs::create_directory(directory / "a");
  const std::string reason = reasonOf([&] { fs::rename(from, to); });
  fs::remove(directory / "a");
  expectFailure([&] { Filesystem::move(from, to); }, reason, "Couldn't move " + from.string() + " to " + to.string());
  EXPECT_TRUE(fs::is_directory(directory / "a"));
}

TEST(Entry, ReportsAMoveWithUncreatableParentsOnce) {
  const TempDirectory directory;
  writeFile(directory / "from", "");
  writeFile(directory / "file", "");
  const fs::path to = directory / "file/to";
  expectFailure([&] { Filesystem::move(directory / "from", to); },
                reasonOf([&] { fs::create_directories(directory / "file"); }),
                "Couldn't move " + (directory / "from").string() + " to " + to.string());
  EXPECT_TRUE(fs::exists(directory / "from"));
}

/// Symlinks and hard links, which are created by the same steps.
struct LinkKind {
  const char* name;
  void (*make)(const fs::path& target, const fs::path& link);
  void (*library)(const fs::path& target, const fs::path& link);
};

class EntryLink : public testing::TestWithParam<LinkKind> {
protected:
  std::string message(const fs::path& target, const fs::path& link) const {
    return "Couldn't create " + std::string(GetParam().name) + " " + link.string() + " pointing to " + target.string();
  }

  TempDirectory directory;
};

INSTANTIATE_TEST_SUITE_P(Kinds, EntryLink,
                         testing::Values(LinkKind{"symlink", Filesystem::createSymlink, fs::create_symlink},
                                         LinkKind{"hardlink", Filesystem::createHardlink, fs::create_hard_link}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(EntryLink, IsCreatedWithItsParents) {
  writeFile(directory / "target", "content");
  const CapturedLog log;
  GetParam().make(directory / "target", directory / "a/b/link");
  EXPECT_EQ(Support::readFile(directory / "a/b/link"), "content");
  EXPECT_EQ(log.text(), "");
}

TEST_P(EntryLink, IsRefusedIfThePathExists) {
  writeFile(directory / "target", "content");
  writeFile(directory / "link", "old");
  fs::create_symlink("target", directory / "to target");
  for (const fs::path& link : {directory / "link", directory / "to target", directory.path()})
    expectRefusal([&] { GetParam().make(directory / "target", link); },
                  message(directory / "target", link) + " (path already exists)");
  EXPECT_EQ(Support::readFile(directory / "link"), "old");
}

TEST_P(EntryLink, FailsAtADanglingSymlink) {
  writeFile(directory / "target", "");
  const fs::path link = directory / "link";
  fs::create_symlink("missing", link);
  expectFailure([&] { GetParam().make(directory / "target", link); },
                reasonOf([&] { GetParam().library(directory / "target", link); }), message(directory / "target", link));
  EXPECT_EQ(fs::read_symlink(link), "missing");
}

TEST_P(EntryLink, FailsWhenItsParentsCannotBeCreated) {
  writeFile(directory / "target", "");
  writeFile(directory / "file", "");
  const fs::path link = directory / "file/link";
  expectFailure([&] { GetParam().make(directory / "target", link); },
                reasonOf([&] { fs::create_directories(directory / "file"); }), message(directory / "target", link));
}

TEST(EntryLinkText, IsNotChanged) {
  const TempDirectory directory;
  Filesystem::createSymlink("c", directory / "a/b");
  EXPECT_EQ(fs::read_symlink(directory / "a/b").native(), "c");
  Filesystem::createSymlink("../x//./y/", directory / "d");
  EXPECT_EQ(fs::read_symlink(directory / "d").native(), "../x//./y/");
}

TEST(EntryHardlink, IsAnotherNameOfTheSameFile) {
  const TempDirectory directory;
  writeFile(directory / "target", "");
  Filesystem::createHardlink(directory / "target", directory / "link");
  EXPECT_TRUE(fs::equivalent(directory / "target", directory / "link"));
  EXPECT_EQ(fs::hard_link_count(directory / "target"), 2U);
}

TEST(EntryHardlink, FailsForAMissingTargetAndKeepsCreatedParents) {
  const TempDirectory directory;
  const fs::path target = directory / "missing";
  const fs::path link = directory / "a/link";
  fs::create_directory(directory / "a");
  const std::string reason = reasonOf([&] { fs::create_hard_link(target, link); });
  fs::remove(directory / "a");
  expectFailure([&] { Filesystem::createHardlink(target, link); }, reason,
                "Couldn't create hardlink " + link.string() + " pointing to " + target.string());
  EXPECT_TRUE(fs::is_directory(directory / "a"));
}

} // namespace
