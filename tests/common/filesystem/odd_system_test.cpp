// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/copy.h"
#include "common/filesystem/locations.h"
#include "common/filesystem/xattr.h"
#include "tests/common/filesystem/fixture.h"
#include "tests/common/filesystem/odd_system.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/files/special_files.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/scoped_mask.h"

#include <boost/version.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
namespace Filesystem = Common::Filesystem;
using Filesystem::XattrList;
using Support::describeTree;
using Support::errorOf;
using Support::reasonOf;
using Support::writeFile;

/// Returns the next of `counts` for each call, -1 for a failure, and writes `bytes` into every buffer. Records the size
/// that each call passed.
struct Answers {
  std::vector<ssize_t> counts;
  std::string bytes;
  std::vector<size_t> sizes = {};
  std::vector<bool> buffers = {};

  ssize_t next(void* buffer, size_t size) {
    sizes.push_back(size);
    buffers.push_back(buffer != nullptr);
    if (buffer != nullptr)
      std::memcpy(buffer, bytes.data(), std::min(bytes.size(), size));
    const ssize_t count = counts.at(sizes.size() - 1);
    return count < 0 ? failing(ERANGE) : count;
  }
};

/// Removes all replacements after each test.
class OddSystemTest : public FilesystemTest {
protected:
  void TearDown() override {
    oddSystem() = {};
    FilesystemTest::TearDown();
  }
};

class OddAttributes : public OddSystemTest {
protected:
  OddAttributes() {
    oddSystem().getxattr = [this](const char*, void* buffer, size_t size) { return values.next(buffer, size); };
    oddSystem().listxattr = [this](char* buffer, size_t size) { return names.next(buffer, size); };
  }

  Answers values;
  Answers names;
};

TEST_F(OddAttributes, AValueThatShrinksKeepsItsFirstLength) {
  values = {{5, 2}, "ab"};
  EXPECT_EQ(Filesystem::getXattr("/x", "user.value"), std::string("ab\0\0\0", 5));
}

TEST_F(OddAttributes, AValueThatGrowsIsAnError) {
  values = {{2, -1}, ""};
  EXPECT_EQ(errorOf([] { Filesystem::getXattr("/x", "user.value"); }),
            "Filesystem: Couldn't retrieve user.value extended attribute: /x");
  expectSilence();
}

TEST_F(OddAttributes, AValueWithoutASizeIsAnError) {
  values = {{-1}, ""};
  EXPECT_EQ(errorOf([] { Filesystem::getXattr("/x", "user.value"); }),
            "Filesystem: Couldn't retrieve size of user.value extended attribute: /x");
  expectSilence();
}

TEST_F(OddAttributes, AnEmptyValueIsReadTwiceWithoutABuffer) {
  values = {{0, 7}, ""};
  EXPECT_EQ(Filesystem::getXattr("/x", "user.value"), "");
  EXPECT_EQ(values.buffers, (std::vector<bool>{false, false}));
  EXPECT_EQ(values.sizes, (std::vector<size_t>{0, 0}));
}

TEST_F(OddAttributes, AnEmptyValueThatDisappearsIsAnError) {
  values = {{0, -1}, ""};
  EXPECT_EQ(errorOf([] { Filesystem::getXattr("/x", "user.value"); }),
            "Filesystem: Couldn't retrieve user.value extended attribute: /x");
}

TEST_F(OddAttributes, AreListedInTheOrderOfTheSystem) {
  names = {{14, 14}, std::string("user.b\0user.a\0", 14)};
  values = {{1, 1, 1, 1}, "x"};
  EXPECT_EQ(Filesystem::listXattrs("/x"), (XattrList{{"user.b", "x"}, {"user.a", "x"}}));
}

TEST_F(OddAttributes, AnEmptyListIsReadTwiceWithoutABuffer) {
  names = {{0, 0}, ""};
  EXPECT_EQ(Filesystem::listXattrs("/x"), XattrList());
  EXPECT_EQ(names.buffers, (std::vector<bool>{false, false}));
  EXPECT_EQ(names.sizes, (std::vector<size_t>{0, 0}));
}

TEST_F(OddAttributes, AListThatGrowsIsAnError) {
  for (const ssize_t first : {0, 7}) {
    names = {{first, -1}, ""};
    EXPECT_EQ(errorOf([] { Filesystem::listXattrs("/x"); }), "Filesystem: Couldn't retrieve extended attributes: /x");
  }
  expectSilence();
}

TEST_F(OddAttributes, AListWithoutASizeIsAnError) {
  names = {{-1}, ""};
  EXPECT_EQ(errorOf([] { Filesystem::listXattrs("/x"); }),
            "Filesystem: Couldn't retrieve size of extended attributes: /x");
  expectSilence();
}

TEST_F(OddAttributes, AListThatShrinksIsReadToItsFirstSize) {
  // The rest of the buffer is zeros, which are read as empty names.
  names = {{14, 7}, std::string("user.a\0", 7)};
  values = {{1, 1, -1}, "x"};
  EXPECT_EQ(errorOf([] { Filesystem::listXattrs("/x"); }),
            "Filesystem: Couldn't retrieve size of  extended attribute: /x");
}

TEST_F(OddAttributes, AListPassesOnTheErrorOfAValue) {
  names = {{7, 7}, std::string("user.a\0", 7)};
  values = {{3, -1}, ""};
  EXPECT_EQ(errorOf([] { Filesystem::listXattrs("/x"); }),
            "Filesystem: Couldn't retrieve user.a extended attribute: /x");
}

TEST_F(OddAttributes, AnUnterminatedNameIsReadWithinTheBuffer) {
  names = {{6, 6}, "user.a"};
  values = {{1, 1}, "x"};
  EXPECT_EQ(Filesystem::listXattrs("/x"), (XattrList{{"user.a", "x"}}));
}

TEST_F(OddAttributes, AreSetUnchangedAndReplaced) {
  struct Call {
    std::string path, name, value;
    int flags;
    bool operator==(const Call&) const = default;
  };
  std::vector<Call> calls;
  oddSystem().lsetxattr = [&](const char* path, const char* name, const void* value, size_t size, int flags) {
    calls.push_back({path, name, std::string(static_cast<const char*>(value), size), flags});
    return 0;
  };
  Filesystem::setXattr("/x", "security.any", zeros);
  Filesystem::setXattr("/x", "user.empty", "");
  EXPECT_EQ(calls, (std::vector<Call>{{"/x", "security.any", zeros, 0}}));
}

/// Files whose attributes the destination refuses.
class RefusedAttributes : public OddSystemTest {
protected:
  RefusedAttributes() {
    oddSystem().listxattr = [](char* list, size_t size) -> ssize_t {
      std::copy_n("user.a", std::min<size_t>(size, 7), list);
      return 7;
    };
    oddSystem().getxattr = [](const char*, void* value, size_t size) -> ssize_t {
      std::fill_n(static_cast<char*>(value), size, 'x');
      return 1;
    };
    oddSystem().lsetxattr = [](const char*, const char*, const void*, size_t, int) { return failing(ENOTSUP); };
  }
};

TEST_F(RefusedAttributes, RemoveTheCopyOfAFile) {
  writeFile(from, "content");
  for (const int error : {ENOTSUP, ERANGE, E2BIG, ENOSPC, EPERM}) {
    oddSystem().lsetxattr = [&](const char*, const char*, const void*, size_t, int) { return failing(error); };
    EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, to); }),
              "Filesystem: Couldn't attach user.a extended attribute to " + to.string());
    EXPECT_EQ(describeTree(to), "nothing\n");
  }
  expectSilence();
}

TEST_F(RefusedAttributes, RemoveTheCopyWhenTheyCannotBeRead) {
  writeFile(from, "content");
  oddSystem().getxattr = [](const char*, void*, size_t) { return failing(EIO); };
  EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, to); }),
            "Filesystem: Couldn't retrieve size of user.a extended attribute: " + from.string());
  EXPECT_EQ(describeTree(to), "nothing\n");
  oddSystem().listxattr = [](char*, size_t) { return failing(EIO); };
  EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, to); }),
            "Filesystem: Couldn't retrieve size of extended attributes: " + from.string());
  EXPECT_EQ(describeTree(to), "nothing\n");
  expectSilence();
}

TEST_F(RefusedAttributes, AreTheErrorEvenIfTheCopyCannotBeRemoved) {
  writeFile(from, "content");
  const fs::path copied = directory / "folder/copy";
  fs::create_directory(directory / "folder");
  const Support::OrdinaryUser user(directory.path());
  std::string reason;
  oddSystem().lsetxattr = [&](const char*, const char*, const void*, size_t, int) {
    fs::permissions(copied.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
    reason = reasonOf([&] { fs::remove_all(copied); });
    return failing(ENOTSUP);
  };
  EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, copied); }),
            "Filesystem: Couldn't attach user.a extended attribute to " + copied.string());
  EXPECT_EQ(log.text(), "[E] " + reason + "\n[W] Couldn't cleanup bad copied file: " + quoted(copied) + "\n");
  fs::permissions(copied.parent_path(), fs::perms::owner_all);
  EXPECT_EQ(describeTree(copied), describeTree(from));
}

TEST_F(RefusedAttributes, RemoveTheCopyOfATree) {
  writeFile(from / "a/b/file", "content");
  writeFile(from / "other", "content");
  const std::string before = describeTree(from);
  const std::string error = errorOf([&] { Filesystem::copy(from, to); });
  EXPECT_THAT(error,
              testing::AnyOf("Filesystem: Couldn't attach user.a extended attribute to " + (to / "a/b/file").string(),
                             "Filesystem: Couldn't attach user.a extended attribute to " + (to / "other").string()));
  EXPECT_EQ(describeTree(to), "nothing\n");
  EXPECT_EQ(describeTree(from), before);
  expectSilence();
}

TEST_F(RefusedAttributes, RemoveTheCopiedContentOfASymlink) {
  writeFile(directory / "target", "content");
  const std::string before = describeTree(directory / "target");
  fs::create_symlink(directory / "target", from);
  EXPECT_EQ(errorOf([&] { Filesystem::copySymlink(from, to); }),
            "Filesystem: Couldn't attach user.a extended attribute to " + to.string());
  EXPECT_EQ(describeTree(to), "nothing\n");
  EXPECT_EQ(describeTree(directory / "target"), before);
}

TEST_F(RefusedAttributes, RemoveTheCopyAfterAnyException) {
  writeFile(from / "file", "content");
  // No memory can be allocated for this size.
  oddSystem().listxattr = [](char*, size_t) -> ssize_t { return SSIZE_MAX; };
  EXPECT_THROW(Filesystem::copyFile(from / "file", to), std::bad_alloc);
  EXPECT_EQ(describeTree(to), "nothing\n");
  EXPECT_THROW(Filesystem::copyDirectory(from, to), std::bad_alloc);
  EXPECT_EQ(describeTree(to), "nothing\n");
  expectSilence();
}

class OddContent : public OddSystemTest {};
class OddGroup : public OddSystemTest {};
class OddRandomSource : public OddSystemTest {};

TEST_F(OddContent, IsReadFromWhereCopyFileRangeStopped) {
  const std::string content(200'000, 'x');
  writeFile(from, content + "end");
  for (const int error : {0, ENOSYS, EXDEV, EINVAL, EIO}) {
    int calls = 0;
    oddSystem().copyFileRange = [&](int source, int destination, size_t) -> ssize_t {
      if (++calls == 3)
        return error == 0 ? 0 : failing(error);
      return syscall(SYS_copy_file_range, source, nullptr, destination, nullptr, 50'000, 0);
    };
    Filesystem::copyFile(from, to);
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(Support::readFile(to) == content + "end") << error;
    fs::remove(to);
  }
  expectSilence();
}

TEST_F(OddContent, IsReadToTheEndDespiteShortReads) {
  writeFile(from, std::string(100, 'x') + "end");
  oddSystem().copyFileRange = [](int, int, size_t) { return failing(EXDEV); };
  int calls = 0;
  oddSystem().read = [&](int file, void* buffer, size_t size) -> ssize_t {
    return ++calls % 3 == 2 ? failing(EINTR) : syscall(SYS_read, file, buffer, std::min<size_t>(size, 7));
  };
  Filesystem::copyFile(from, to);
  EXPECT_EQ(Support::readFile(to), std::string(100, 'x') + "end");
  EXPECT_GT(calls, 100 / 7);
  expectSilence();
}

TEST_F(OddContent, IsAnErrorIfCloseFails) {
  writeFile(from, "content");
  oddSystem().close = [](int descriptor) {
    const bool written = (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_WRONLY;
    syscall(SYS_close, descriptor);
    return written ? failing(EDQUOT) : 0;
  };
  EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, to); }),
            "Filesystem: Coulnd't copy file " + from.string() + " to " + to.string());
  oddSystem().close = nullptr;
  EXPECT_EQ(log.text(), "[E] filesystem error: cannot copy file: Disk quota exceeded [" + from.string() + "] [" +
                            to.string() + "]\n");
}

TEST_F(OddContent, IsNeverReadableByMoreUsersThanTheSource) {
  writeFile(from, "secret");
  fs::permissions(from, fs::perms(0600));
  const Support::ScopedMask mask(0);
  std::vector<mode_t> modes;
  oddSystem().open = [&](const char* path, int flags, mode_t mode) {
    const int file = reallyOpen(path, flags, mode);
    struct stat status {};
    if ((flags & O_CREAT) != 0 && fstat(file, &status) == 0)
      modes.push_back(status.st_mode & ALLPERMS);
    return file;
  };
  Filesystem::copyFile(from, to);
  EXPECT_EQ(modes, std::vector<mode_t>{0600});
}

TEST_F(OddContent, EndsWhereTheSourceEndsIfItShrinks) {
  writeFile(from, std::string(2 << 20, 'x'));
  int calls = 0;
  oddSystem().fallocate = [&](int file, int mode, off_t offset, off_t size) {
    ++calls;
    fs::resize_file(from, 10);
    return reallyFallocate(file, mode, offset, size);
  };
  Filesystem::copyFile(from, to);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(Support::readFile(to) == std::string(10, 'x'));
  expectSilence();
}

TEST_F(OddContent, GetsNoBlocksForHoles) {
  writeFile(from, "content");
  fs::resize_file(from, 2 << 20);
  struct stat status {};
  ASSERT_EQ(stat(from.c_str(), &status), 0);
  if (status.st_blocks * 512 >= status.st_size)
    GTEST_SKIP() << "no holes in files in " << directory.path();
  int calls = 0;
  oddSystem().fallocate = [&](int, int, off_t, off_t) { return ++calls; };
  Filesystem::copyFile(from, to);
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(Support::readFile(to) == Support::readFile(from));
}

/// Creates an entry at the destination of the second of two files while the first is copied.
class InTheWay : public OddSystemTest {
protected:
  InTheWay() {
    writeFile(from / "one", "content");
    writeFile(from / "two", "content");
    writeFile(directory / "stranger", "kept");
  }

  /// Copies the tree. `take` creates an entry at the path that it gets.
  std::string errorOfCopy(const std::function<void(const fs::path&)>& take) {
    oddSystem().listxattr = [&, take](char*, size_t) -> ssize_t {
      if (taken.empty()) {
        taken = fs::exists(to / "one") ? "two" : "one";
        take(to / taken);
      }
      return 0;
    };
    return errorOf([&] { Filesystem::copyDirectory(from, to); });
  }

  std::string subject() const { return (from / taken).string() + " to " + (to / taken).string(); }

  fs::path taken;
};

TEST_F(InTheWay, IsRefusedLikeAnExistingEntry) {
  for (const auto& take : std::vector<std::function<void(const fs::path&)>>{
           [](const fs::path& path) { writeFile(path, "other"); },
           [](const fs::path& path) { fs::create_directory(path); }, Support::makeFifo,
           [&](const fs::path& path) { fs::create_symlink(directory / "stranger", path); }}) {
    taken.clear();
    const std::string error = errorOfCopy(take);
    EXPECT_EQ(error, "Filesystem: Couldn't copy " + subject() + " (path already exists)");
    EXPECT_EQ(describeTree(to), "nothing\n");
    EXPECT_EQ(Support::readFile(directory / "stranger"), "kept");
  }
  expectSilence();
}

// A dangling symlink counts as missing, but no file can be created at its path.
TEST_F(InTheWay, FailsTheCopyIfItIsADanglingSymlink) {
  const std::string error = errorOfCopy([&](const fs::path& path) { fs::create_symlink("missing", path); });
  EXPECT_EQ(error, "Filesystem: Coulnd't copy file " + subject());
  EXPECT_EQ(log.text(), "[E] filesystem error: cannot copy file: File exists [" + (from / taken).string() + "] [" +
                            (to / taken).string() + "]\n");
  EXPECT_EQ(describeTree(to), "nothing\n");
}

TEST_F(InTheWay, IsRefusedForASingleFileToo) {
  oddSystem().open = [&](const char* path, int flags, mode_t mode) {
    if ((flags & O_CREAT) != 0)
      fs::create_symlink(directory / "stranger", path);
    return reallyOpen(path, flags, mode);
  };
  EXPECT_EQ(errorOf([&] { Filesystem::copy(from / "one", to); }),
            "Filesystem: Couldn't copy " + (from / "one").string() + " to " + to.string() + " (path already exists)");
  EXPECT_EQ(Support::readFile(to), "kept");
  expectSilence();
}

/// A file with a lease; only a blocking open waits for the end of the lease.
class LeasedContent : public OddSystemTest {
protected:
  LeasedContent() {
    writeFile(from, "content");
    oddSystem().open = [this](const char* path, int flags, mode_t mode) {
      if ((flags & O_PATH) != 0)
        beforeLooking();
      else
        beforeOpening();
      return (flags & O_NONBLOCK) != 0 ? failing(EWOULDBLOCK) : reallyOpen(path, flags, mode);
    };
  }

  void replaceByFifo() {
    fs::remove(from);
    Support::makeFifo(from);
  }

  std::function<void()> beforeLooking = [] {};
  std::function<void()> beforeOpening = [] {};
};

TEST_F(LeasedContent, IsCopied) {
  Filesystem::copyFile(from, to);
  EXPECT_EQ(Support::readFile(to), "content");
  expectSilence();
}

TEST_F(LeasedContent, IsNotConfusedWithAFifoThatReplacesIt) {
  beforeLooking = [this] { replaceByFifo(); };
  EXPECT_EQ(errorOf([&] { Filesystem::copyFile(from, to); }),
            "Filesystem: Coulnd't copy file " + from.string() + " to " + to.string());
  EXPECT_EQ(log.text(), "[E] filesystem error: cannot copy file: Operation not supported [" + from.string() + "] [" +
                            to.string() + "]\n");
  EXPECT_EQ(describeTree(to), "nothing\n");
}

TEST_F(LeasedContent, IsCopiedFromTheCheckedFile) {
  beforeOpening = [this] {
    if (fs::is_regular_file(from))
      replaceByFifo();
  };
  Filesystem::copyFile(from, to);
  EXPECT_EQ(Support::readFile(to), "content");
  expectSilence();
}

/// Makes every open of a path in /proc fail, as where it is not mounted.
class ContentWithoutProc : public OddSystemTest {
protected:
  ContentWithoutProc() {
    oddSystem().open = [](const char* path, int flags, mode_t mode) {
      return std::string_view(path).starts_with("/proc/") ? failing(ENOENT) : reallyOpen(path, flags, mode);
    };
  }
};

TEST_F(ContentWithoutProc, IsCopied) {
  writeFile(from, "content");
  Filesystem::copyFile(from, to);
  EXPECT_EQ(Support::readFile(to), "content");
  expectSilence();
}

TEST_F(OddContent, AndAttributesComeFromTheSameFile) {
  if (!Support::keepsAttributes(directory.path()))
    GTEST_SKIP() << "no user attributes in " << directory.path();
  writeFile(from, "content");
  Support::attach(from, "user.origin", "first");
  writeFile(directory / "other", "other");
  Support::attach(directory / "other", "user.origin", "second");
  oddSystem().copyFileRange = [&](int, int, size_t) -> ssize_t {
    if (fs::exists(directory / "other"))
      fs::rename(directory / "other", from);
    return 0;
  };
  Filesystem::copyFile(from, to);
  EXPECT_EQ(Support::readFile(to), "content");
  EXPECT_EQ(Filesystem::listXattrs(to), (XattrList{{"user.origin", "first"}}));
  EXPECT_EQ(Support::readFile(from), "other");
}

TEST_F(OddGroup, WithoutAMemberListIsAnError) {
  group users{};
  std::string asked;
  oddSystem().getgrnam = [&](const char* name) {
    asked = name;
    return &users;
  };
  EXPECT_EQ(errorOf([] { Filesystem::usersHomeDirectories(); }), "Internal: Couldn't retrieve list of system users");
  EXPECT_EQ(asked, "users");
  expectSilence();
}

TEST_F(OddRandomSource, ThrowsItsError) {
  // Since 1.78 Boost appends the error's category and number to its text.
  const std::string suffix = BOOST_VERSION >= 107800 ? " [system:5]" : "";
  oddSystem().getrandom = [](void*, size_t, unsigned) { return failing(EIO); };
  EXPECT_EQ(reasonOf([] { Filesystem::uniquePath("pkg-%%%%.tmp"); }),
            "boost::filesystem::unique_path: Input/output error" + suffix);
  expectSilence();
}

} // namespace
