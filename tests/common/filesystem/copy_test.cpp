// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/copy.h"
#include "tests/common/filesystem/fixture.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/files/special_files.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/working_directory.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
namespace Filesystem = Common::Filesystem;
using Support::attach;
using Support::CapturedLog;
using Support::describeTree;
using Support::errorOf;
using Support::readFile;
using Support::reasonOf;
using Support::ScopedWorkingDirectory;
using Support::writeFile;

class Copy : public FilesystemTest {};
class CopyAttributes : public AttributesTest {};
class CopyFile : public FilesystemTest {};
class CopySymlink : public FilesystemTest {};
class CopyDirectory : public FilesystemTest {};

// ---- files

TEST_F(CopyFile, CopiesContentAndPermissions) {
  writeFile(from, "content");
  fs::permissions(from, static_cast<fs::perms>(0751));
  Filesystem::copyFile(from, to);
  EXPECT_EQ(describeTree(to), "file 751 \"content\"\n");
  EXPECT_EQ(describeTree(from), "file 751 \"content\"\n");
  expectSilence();
}

TEST_F(CopyFile, CreatesTheMissingParents) {
  writeFile(from, "content");
  Filesystem::copyFile(from, directory / "a/b/to");
  EXPECT_EQ(readFile(directory / "a/b/to"), "content");
  expectSilence();
}

TEST_F(CopyFile, CreatesNoParentsForABareName) {
  writeFile(from, "content");
  const ScopedWorkingDirectory working(directory.path());
  Filesystem::copyFile("from", "to");
  EXPECT_EQ(readFile("to"), "content");
  expectSilence();
}

TEST_F(CopyFile, FollowsASymlink) {
  writeFile(from, "content");
  fs::create_symlink("from", directory / "link");
  Filesystem::copyFile(directory / "link", to);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(to)));
  EXPECT_EQ(readFile(to), "content");
}

TEST_F(CopyFile, RefusesOtherTypes) {
  fs::create_directory(directory / "directory");
  fs::create_symlink("directory", directory / "link");
  fs::create_symlink("missing", directory / "dangling");
  Support::makeFifo(directory / "fifo");
  Support::makeSocket(directory / "socket");
  for (const char* name : {"directory", "link", "dangling", "fifo", "socket", "missing"}) {
    const fs::path path = directory / name;
    EXPECT_EQ(errorOf([&] { Filesystem::copyFile(path, directory / "a/to"); }),
              "Filesystem: Attempt to copy file, but " + path.string() + " is not regular file");
  }
  EXPECT_EQ(describeTree(directory / "a"), "nothing\n");
  expectSilence();
}

TEST_F(CopyFile, DoesNotChangeAnExistingDestination) {
  writeFile(from, "new");
  writeFile(directory / "file", "old");
  fs::create_directory(directory / "directory");
  fs::create_symlink("missing", directory / "dangling");
  fs::create_symlink("file", directory / "link");
  const std::string before = describeTree(directory.path());
  for (const char* name : {"file", "directory", "dangling", "link", "from"}) {
    const fs::path path = directory / name;
    const CapturedLog own;
    EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, path); }),
              "Filesystem: Coulnd't copy file " + from.string() + " to " + path.string());
    EXPECT_EQ(own.text(),
              "[E] filesystem error: cannot copy file: File exists [" + from.string() + "] [" + path.string() + "]\n");
  }
  EXPECT_EQ(describeTree(directory.path()), before);
}

TEST_F(CopyFile, ReportsUncreatableParentsOnce) {
  writeFile(from, "new");
  writeFile(directory / "file", "old");
  const fs::path path = directory / "file/below/to";
  EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, path); }),
            "Filesystem: Coulnd't copy file " + from.string() + " to " + path.string());
  EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { fs::create_directories(path.parent_path()); }) + "\n");
}

TEST_F(CopyFile, KeepsCreatedParentsWhenCopyingTheContentFails) {
  writeFile(from, "secret");
  const Support::OrdinaryUser user(directory.path());
  fs::permissions(from, fs::perms::none);
  const fs::path path = directory / "a/to";
  EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, path); }),
            "Filesystem: Coulnd't copy file " + from.string() + " to " + path.string());
  EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { fs::copy_file(from, path); }) + "\n");
  EXPECT_EQ(describeTree(directory / "a"), "directory\n");
}

TEST_F(CopyAttributes, CopiesTheBytesOfEachAttribute) {
  writeFile(from, "content");
  attach(from, "user.plain", "value");
  attach(from, "user.zeros", zeros);
  attach(from, "user.long", std::string(2000, 'x'));
  Filesystem::copyFile(from, to);
  EXPECT_EQ(describeTree(to), describeTree(from));
  expectSilence();
}

TEST_F(CopyAttributes, SkipsAttributesWithAnEmptyValue) {
  writeFile(from, "content");
  fs::permissions(from, static_cast<fs::perms>(0644));
  attach(from, "user.empty", "");
  attach(from, "user.full", "x");
  Filesystem::copyFile(from, to);
  EXPECT_EQ(describeTree(from), "file 644 \"content\" user.empty=\"\" user.full=\"x\"\n");
  EXPECT_EQ(describeTree(to), "file 644 \"content\" user.full=\"x\"\n");
}

TEST_F(CopyAttributes, CopiesTheAttributesOfASymlinksTarget) {
  writeFile(from, "content");
  attach(from, "user.plain", "value");
  fs::create_symlink("from", directory / "link");
  Filesystem::copyFile(directory / "link", to);
  EXPECT_EQ(describeTree(to), describeTree(from));
}

TEST_F(CopyAttributes, RemovesTheFileWhenSettingAnAttributeFails) {
  // The permissions are set before the attributes, so an ordinary user cannot write to the file any more.
  writeFile(from, "content");
  attach(from, "user.plain", "value");
  fs::permissions(from, static_cast<fs::perms>(0444));
  const std::string before = describeTree(from);
  const Support::OrdinaryUser user(directory.path());
  const fs::path path = directory / "a/to";
  EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, path); }),
            "Filesystem: Couldn't attach user.plain extended attribute to " + path.string());
  EXPECT_EQ(describeTree(directory / "a"), "directory\n");
  EXPECT_EQ(describeTree(from), before);
  expectSilence();
}

TEST_F(CopyAttributes, RemovesTheFileOnAFileSystemWithoutAttributes) {
  const fs::path elsewhere = "/dev/shm" / directory.path().filename();
  writeFile(elsewhere, "content");
  const std::string large(60'000, 'x');
  const std::string unlike = reasonOf([&] { attach(elsewhere, "user.large", large); });
  writeFile(directory / "probe", "");
  const std::string refused = reasonOf([&] { attach(directory / "probe", "user.large", large); });
  const std::string error = errorOf([&] { Filesystem::copyFile(elsewhere, to); });
  fs::remove(elsewhere);
  if (unlike != "no exception" || refused == "no exception")
    GTEST_SKIP() << "needs a /dev/shm that takes attributes of 60,000 bytes and a TMPDIR that does not";
  EXPECT_EQ(error, "Filesystem: Couldn't attach user.large extended attribute to " + to.string());
  EXPECT_EQ(describeTree(to), "nothing\n");
  expectSilence();
}

// ---- symlinks

TEST_F(CopySymlink, RefusesOtherTypes) {
  writeFile(directory / "file", "");
  for (const fs::path& path : {directory / "file", directory.path(), directory / "missing"})
    EXPECT_EQ(errorOf([&] { Filesystem::copySymlink(path, to); }),
              "Filesystem: Attempt to copy symlink, but " + path.string() + " is not symlink");
  EXPECT_EQ(describeTree(to), "nothing\n");
  expectSilence();
}

TEST_F(CopySymlink, RecreatesASymlinkIntoItsOwnDirectory) {
  writeFile(directory / "lib.so.1", "content");
  for (const char* target : {"lib.so.1", "sub/file", "sub/../..", "dangling", "-x", " x", "a.b", "~/x", "b\"\\"}) {
    const fs::path link = directory / "link";
    const fs::path copied = directory / "a/b/link";
    fs::create_symlink(target, link);
    Filesystem::copySymlink(link, copied);
    EXPECT_EQ(fs::read_symlink(copied).native(), target);
    EXPECT_EQ(fs::read_symlink(link).native(), target);
    fs::remove(link);
    fs::remove_all(directory / "a");
  }
  expectSilence();
}

TEST_F(CopySymlink, RecreatesASymlinkToADirectory) {
  fs::create_directory(directory / "target");
  fs::create_directory_symlink("target", from);
  Filesystem::copySymlink(from, to);
  EXPECT_EQ(describeTree(to), "link \"target\"\n");
  expectSilence();
}

TEST_F(CopySymlink, CreatesNoParentsForABareName) {
  const ScopedWorkingDirectory working(directory.path());
  fs::create_symlink("x", "from");
  Filesystem::copySymlink("from", "to");
  EXPECT_EQ(describeTree(to), "link \"x\"\n");
  expectSilence();
}

TEST_F(CopySymlink, CopiesTheContentOfATargetInAnotherDirectory) {
  // A relative target is resolved against the working directory, where another file has the same name.
  writeFile(directory / "work/here/x", "from ./x");
  writeFile(directory / "work/x", "from ../x");
  writeFile(directory / "work/here/.hidden", "from .hidden");
  writeFile(directory / "absolute", "from /absolute");
  writeFile(directory / "links/x", "beside the link");
  const ScopedWorkingDirectory working(directory / "work/here");
  struct Case {
    std::string target;
    std::string content;
  };
  for (const Case& each : {Case{"./x", "from ./x"}, Case{"../x", "from ../x"}, Case{".hidden", "from .hidden"},
                           Case{directory / "absolute", "from /absolute"}}) {
    const fs::path link = directory / "links/link";
    const fs::path copied = directory / "a/b/link";
    fs::create_symlink(each.target, link);
    const CapturedLog own;
    Filesystem::copySymlink(link, copied);
    EXPECT_EQ(own.text(), "[W] Symlink target is not in the same directory: " + quoted(link) + " -> " + quoted(copied) +
                              "\n" + contentOfTarget);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(copied)));
    EXPECT_EQ(readFile(copied), each.content);
    fs::remove(link);
    fs::remove_all(directory / "a");
  }
}

TEST_F(CopySymlink, QuotesPathsInWarnings) {
  writeFile(directory / "target", "content");
  const ScopedWorkingDirectory working(directory.path());
  fs::create_symlink("./target", "a \"b\\");
  Filesystem::copySymlink("a \"b\\", "c \"d\\");
  EXPECT_EQ(log.text(), "[W] Symlink target is not in the same directory: \"a \\\"b\\\\\" -> \"c \\\"d\\\\\"\n" +
                            std::string(contentOfTarget));
}

TEST_F(CopySymlink, PassesOnTheErrorOfCopyFile) {
  fs::create_symlink(directory / "missing", from);
  EXPECT_EQ(errorOf([&] { Filesystem::copySymlink(from, to); }),
            "Filesystem: Attempt to copy file, but " + (directory / "missing").string() + " is not regular file");
  EXPECT_EQ(log.text(), "[W] Symlink target is not in the same directory: " + quoted(from) + " -> " + quoted(to) +
                            "\n" + contentOfTarget);
  EXPECT_EQ(describeTree(to), "nothing\n");
}

TEST_F(CopySymlink, RefusesADirectoryAsTargetInAnotherDirectory) {
  fs::create_directory(directory / "target");
  fs::create_directory_symlink(directory / "target", from);
  EXPECT_EQ(errorOf([&] { Filesystem::copySymlink(from, to); }),
            "Filesystem: Attempt to copy file, but " + (directory / "target").string() + " is not regular file");
}

TEST_F(CopySymlink, CopiesTheContentWhenTheSymlinkCannotBeCreated) {
  // The target exists relative to the working directory, but the destination exists too.
  writeFile(directory / "target", "content");
  writeFile(to, "old");
  fs::create_symlink("target", from);
  const ScopedWorkingDirectory working(directory.path());
  EXPECT_EQ(errorOf([&] { Filesystem::copySymlink(from, to); }),
            "Filesystem: Coulnd't copy file target to " + to.string());
  EXPECT_EQ(log.text(), "[W] Coulnd't copy symlink " + quoted(from) + " to " + quoted(to) + "\n" + contentOfTarget +
                            "[E] " + reasonOf([&] { fs::copy_file("target", to); }) + "\n");
  EXPECT_EQ(readFile(to), "old");
}

TEST_F(CopySymlink, CopiesTheContentWhenTheParentsCannotBeCreated) {
  writeFile(directory / "file", "old");
  fs::create_symlink("target", from);
  const fs::path path = directory / "file/to";
  EXPECT_EQ(errorOf([&] { Filesystem::copySymlink(from, path); }),
            "Filesystem: Attempt to copy file, but target is not regular file");
  EXPECT_EQ(log.text(), "[W] Coulnd't copy symlink " + quoted(from) + " to " + quoted(path) + "\n" + contentOfTarget);
}

// ---- directories

TEST_F(CopyDirectory, CopiesATree) {
  writeFile(from / "file", "content");
  writeFile(from / ".hidden", "");
  writeFile(from / "sub/deep/run", "#!");
  fs::permissions(from / "sub/deep/run", static_cast<fs::perms>(0755));
  fs::create_directory(from / "empty");
  fs::create_symlink("file", from / "link");
  fs::create_directory_symlink("sub", from / "to sub");
  writeFile(from / "names/a \"b\\\n\xff", "odd");
  const std::string before = describeTree(from);
  Filesystem::copyDirectory(from, directory / "a/b/to");
  EXPECT_EQ(describeTree(directory / "a/b/to"), before);
  EXPECT_EQ(describeTree(from), before);
  expectSilence();
}

TEST_F(CopyDirectory, FollowsASymlinkToTheSource) {
  writeFile(directory / "real/file", "content");
  fs::create_directory_symlink("real", from);
  Filesystem::copyDirectory(from, to);
  EXPECT_EQ(describeTree(to), describeTree(directory / "real"));
}

TEST_F(CopyDirectory, CopiesIntoABareName) {
  writeFile(from / "file", "content");
  const ScopedWorkingDirectory working(directory.path());
  Filesystem::copyDirectory("from", "to");
  Filesystem::copyDirectory("./from/", "./to with a slash/");
  EXPECT_EQ(describeTree(to), describeTree(from));
  EXPECT_EQ(describeTree(directory / "to with a slash"), describeTree(from));
  expectSilence();
}

TEST_F(CopyDirectory, AddsToAnExistingDirectory) {
  writeFile(from / "file", "new");
  writeFile(to / "other", "old");
  Filesystem::copyDirectory(from, to);
  EXPECT_EQ(readFile(to / "file"), "new");
  EXPECT_EQ(readFile(to / "other"), "old");
  expectSilence();
}

TEST_F(CopyDirectory, RefusesOtherTypes) {
  writeFile(directory / "file", "");
  fs::create_symlink("file", directory / "link");
  fs::create_symlink("missing", directory / "dangling");
  for (const char* name : {"file", "link", "dangling", "missing"}) {
    const fs::path path = directory / name;
    EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(path, to); }),
              "Filesystem: Attempt to copy directory, but " + path.string() + " is not directory");
  }
  EXPECT_EQ(describeTree(to), "nothing\n");
  expectSilence();
}

TEST_F(CopyDirectory, FailsWhenTheDestinationCannotBeCreated) {
  writeFile(from / "file", "new");
  writeFile(directory / "file", "old");
  fs::create_symlink("missing", directory / "dangling");
  fs::create_symlink("loop", directory / "loop");
  const std::string before = describeTree(directory.path());
  for (const fs::path& path : {directory / "file", directory / "file/to", directory / "dangling", directory / "loop/to",
                               directory / std::string(300, 'x'), fs::path()})
    EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(from, path); }),
              "Filesystem: Coulnd't copy directory " + from.string() + " to " + path.string());
  EXPECT_EQ(describeTree(directory.path()), before);
  expectSilence();
}

TEST_F(CopyDirectory, RefusesToCopyADirectoryIntoItself) {
  writeFile(from / "sub/file", "content");
  fs::create_directory_symlink("from", directory / "link");
  fs::create_directory_symlink("from/sub", directory / "to sub");
  fs::create_directory(directory / "beside");
  const std::string before = describeTree(directory.path());
  const ScopedWorkingDirectory working(directory / "beside");
  for (const fs::path& path :
       {from, from / "", from / ".", from / "new", from / "a/b/c/", from / "sub", from / "sub/new", directory / "link",
        directory / "link/new", directory / "to sub", directory / "to sub/new", directory / "to sub/..",
        directory / "to sub/../new", directory / "beside/../from/new", directory / "new/../from/new",
        fs::path("../from"), fs::path("../from/new"), fs::path("../link/new/"), fs::path("new/../../from/a")})
    for (const fs::path& source : {from, from / "", directory / "link", fs::path("../from/sub/..")})
      EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(source, path); }),
                "Filesystem: Coulnd't copy directory " + source.string() + " to " + path.string());
  EXPECT_EQ(describeTree(directory.path()), before);
  expectSilence();
}

TEST_F(CopyDirectory, CopiesADirectoryBesideItself) {
  writeFile(from / "file", "content");
  for (const char* name : {"from2", "fro", "x/from", "from/../y", "z/../from3"}) {
    Filesystem::copyDirectory(from, directory / name);
    EXPECT_EQ(describeTree(directory / name), describeTree(from)) << name;
  }
  expectSilence();
}

TEST_F(CopyDirectory, CopiesADirectoryIntoAnAncestor) {
  writeFile(directory / "above/from/file", "content");
  Filesystem::copyDirectory(directory / "above/from", directory / "above");
  EXPECT_EQ(readFile(directory / "above/file"), "content");
  expectSilence();
}

TEST_F(CopyDirectory, KeepsTheSourceWhenCopyingIntoAnAncestorFails) {
  writeFile(directory / "above/from/from", "content");
  const fs::path source = directory / "above/from";
  const fs::path above = directory / "above";
  const std::string before = describeTree(directory.path());
  EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(source, above); }), "Filesystem: Couldn't copy " +
                                                                            (source / "from").string() + " to " +
                                                                            source.string() + " (path already exists)");
  EXPECT_EQ(log.text(), "[W] Couldn't cleanup bad copied directory: " + quoted(above) + "\n");
  EXPECT_EQ(describeTree(directory.path()), before);
}

TEST_F(CopyDirectory, RemovesThePartialTreeOnFailure) {
  struct Case {
    const char* name;
    std::function<void(const fs::path&)> make;
  };
  for (const Case& each : {Case{"fifo", Support::makeFifo}, Case{"socket", Support::makeSocket}}) {
    const fs::path source = directory / each.name;
    const fs::path bad = source / "one/two/bad";
    writeFile(source / "file", "content");
    writeFile(source / "one/file", "content");
    writeFile(source / "one/two/file", "content");
    each.make(bad);
    const std::string before = describeTree(source);
    EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(source, to); }),
              "Filesystem: Couldn't copy unsupported filesystem entry " + bad.string());
    EXPECT_EQ(describeTree(to), "nothing\n");
    EXPECT_EQ(describeTree(source), before);
  }
  expectSilence();
}

TEST_F(CopyDirectory, KeepsCreatedParentsOnFailure) {
  fs::create_directory(from);
  Support::makeFifo(from / "fifo");
  EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(from, directory / "a/b/to"); }),
            "Filesystem: Couldn't copy unsupported filesystem entry " + (from / "fifo").string());
  EXPECT_EQ(describeTree(directory / "a"), "directory\nb: directory\n");
}

TEST_F(CopyDirectory, RemovesExistingContentOfTheDestinationOnFailure) {
  writeFile(from / "file", "new");
  writeFile(to / "file", "old");
  writeFile(to / "sub/other", "old");
  EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(from, to); }),
            "Filesystem: Couldn't copy " + (from / "file").string() + " to " + (to / "file").string() +
                " (path already exists)");
  EXPECT_EQ(describeTree(to), "nothing\n");
  EXPECT_EQ(readFile(from / "file"), "new");
  expectSilence();
}

TEST_F(CopyDirectory, PassesOnTheErrorOfTheListingAndRemovesTheDestination) {
  // The listing reads the modification time of a symlink's target.
  fs::create_directories(from / "sub");
  fs::create_symlink("missing", from / "sub/dangling");
  EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(from, to); }),
            "Filesystem: Couldn't read directory: " + (from / "sub").string());
  EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { return fs::last_write_time(from / "sub/dangling"); }) + "\n");
  EXPECT_EQ(describeTree(to), "nothing\n");
}

TEST_F(CopyDirectory, LogsAFailedCleanupBeforeTheError) {
  fs::create_directory(from);
  Support::makeFifo(from / "fifo");
  writeFile(to / "closed/file", "old");
  const Support::OrdinaryUser user(directory.path());
  fs::permissions(to / "closed", fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(from, to); }),
            "Filesystem: Couldn't copy unsupported filesystem entry " + (from / "fifo").string());
  EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { fs::remove_all(to); }) +
                            "\n[W] Couldn't cleanup bad copied directory: " + quoted(to) + "\n");
  fs::permissions(to / "closed", fs::perms::owner_all);
  EXPECT_EQ(readFile(to / "closed/file"), "old");
}

TEST_F(CopyDirectory, CopiesTheContentOfSymlinksToOtherDirectories) {
  writeFile(directory / "target", "content");
  fs::create_directory(from);
  fs::create_symlink(directory / "target", from / "link");
  Filesystem::copyDirectory(from, to);
  EXPECT_EQ(log.text(), "[W] Symlink target is not in the same directory: " + quoted(from / "link") + " -> " +
                            quoted(to / "link") + "\n" + contentOfTarget);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(to / "link")));
  EXPECT_EQ(readFile(to / "link"), "content");
}

TEST_F(CopyAttributes, CopiesAttributesOfFilesButNotOfDirectories) {
  writeFile(from / "sub/file", "content");
  attach(from / "sub/file", "user.plain", "value");
  attach(from / "sub/file", "user.zeros", zeros);
  const std::string before = describeTree(from);
  attach(from, "user.directory", "x");
  attach(from / "sub", "user.directory", "x");
  Filesystem::copyDirectory(from, to);
  EXPECT_EQ(describeTree(to), before);
  EXPECT_TRUE(errorOf([&] { Filesystem::copyDirectory(from, to); }).ends_with(" (path already exists)"));
}

TEST_F(CopyAttributes, RemovesTheTreeWhenSettingAnAttributeFails) {
  writeFile(from / "sub/file", "content");
  writeFile(from / "other", "content");
  attach(from / "sub/file", "user.plain", "value");
  fs::permissions(from / "sub/file", static_cast<fs::perms>(0444));
  const std::string before = describeTree(from);
  const Support::OrdinaryUser user(directory.path());
  EXPECT_EQ(errorOf([&] { Filesystem::copyDirectory(from, to); }),
            "Filesystem: Couldn't attach user.plain extended attribute to " + (to / "sub/file").string());
  EXPECT_EQ(describeTree(to), "nothing\n");
  EXPECT_EQ(describeTree(from), before);
  expectSilence();
}

// ---- any entry

TEST_F(Copy, ChoosesTheOperationByType) {
  writeFile(directory / "file", "content");
  writeFile(directory / "directory/below", "content");
  fs::create_symlink("file", directory / "link");
  fs::create_directory_symlink("directory", directory / "link to directory");
  for (const char* name : {"file", "directory", "link", "link to directory"}) {
    const fs::path path = directory / "copies" / name;
    // In the folder of the copies, so that the copied symlinks do not dangle.
    Filesystem::copy(directory / name, path);
    EXPECT_EQ(describeTree(path), describeTree(directory / name));
  }
  expectSilence();
}

TEST_F(Copy, RefusesAMissingSource) {
  fs::create_symlink("missing", directory / "dangling");
  writeFile(to, "old");
  for (const fs::path& source : {directory / "missing", directory / "dangling", directory / "to/below", fs::path()})
    for (const fs::path& path : {directory / "a/to", to})
      EXPECT_EQ(errorOf([&] { Filesystem::copy(source, path); }), "Filesystem: Couldn't copy " + source.string() +
                                                                      " to " + path.string() + " (path " +
                                                                      source.string() + " doesn't exists)");
  EXPECT_EQ(describeTree(directory / "a"), "nothing\n");
  expectSilence();
}

TEST_F(Copy, LogsTheReasonWhenStatOfTheSourceFails) {
  fs::create_symlink("loop", directory / "loop");
  const fs::path loop = directory / "loop";
  EXPECT_EQ(errorOf([&] { Filesystem::copy(loop, to); }), "Filesystem: Couldn't copy " + loop.string() + " to " +
                                                              to.string() + " (path " + loop.string() +
                                                              " doesn't exists)");
  EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { return fs::status(loop); }) + "\n");
}

TEST_F(Copy, RefusesADestinationThatExists) {
  writeFile(directory / "file", "new");
  writeFile(directory / "tree/file", "new");
  fs::create_symlink("file", directory / "link");
  Support::makeFifo(directory / "fifo");
  writeFile(directory / "existing file", "old");
  writeFile(directory / "existing/file", "old");
  fs::create_symlink("existing", directory / "existing link");
  const std::string before = describeTree(directory.path());
  for (const char* name : {"file", "tree", "link", "fifo"})
    for (const char* existing : {"existing file", "existing", "existing link", "fifo", "file", "tree"})
      EXPECT_EQ(errorOf([&] { Filesystem::copy(directory / name, directory / existing); }),
                "Filesystem: Couldn't copy " + (directory / name).string() + " to " + (directory / existing).string() +
                    " (path already exists)");
  EXPECT_EQ(describeTree(directory.path()), before);
  expectSilence();
}

TEST_F(Copy, FailsForADanglingSymlinkAsDestination) {
  writeFile(directory / "file", "new");
  writeFile(directory / "tree/file", "new");
  fs::create_symlink("missing", to);
  const std::string before = describeTree(directory.path());
  EXPECT_EQ(errorOf([&] { Filesystem::copy(directory / "tree", to); }),
            "Filesystem: Coulnd't copy directory " + (directory / "tree").string() + " to " + to.string());
  expectSilence();
  EXPECT_EQ(errorOf([&] { Filesystem::copy(directory / "file", to); }),
            "Filesystem: Coulnd't copy file " + (directory / "file").string() + " to " + to.string());
  EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { fs::copy_file(directory / "file", to); }) + "\n");
  EXPECT_EQ(describeTree(directory.path()), before);
}

TEST_F(Copy, RefusesADirectoryBelowItself) {
  writeFile(from / "file", "content");
  const std::string before = describeTree(directory.path());
  EXPECT_EQ(errorOf([&] { Filesystem::copy(from, from / "a/b"); }),
            "Filesystem: Coulnd't copy directory " + from.string() + " to " + (from / "a/b").string());
  EXPECT_EQ(describeTree(directory.path()), before);
  expectSilence();
}

TEST_F(Copy, RefusesFifosSocketsAndDevices) {
  Support::makeFifo(directory / "fifo");
  Support::makeSocket(directory / "socket");
  for (const fs::path& path : {directory / "fifo", directory / "socket", fs::path("/dev/null")})
    EXPECT_EQ(errorOf([&] { Filesystem::copy(path, directory / "a/to"); }),
              "Filesystem: Couldn't copy unsupported filesystem entry " + path.string());
  EXPECT_EQ(describeTree(directory / "a"), "nothing\n");
  expectSilence();
}

TEST_F(Copy, FailsForASymlinkToAFifoInAnotherDirectory) {
  Support::makeFifo(directory / "fifo");
  fs::create_symlink(directory / "fifo", from);
  EXPECT_EQ(errorOf([&] { Filesystem::copy(from, to); }),
            "Filesystem: Attempt to copy file, but " + (directory / "fifo").string() + " is not regular file");
}

} // namespace
