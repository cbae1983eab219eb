// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/copy.h"
#include "common/filesystem/entry.h"
#include "tests/faults/enumeration.h"
#include "tests/support/faults/system_calls.h"
#include "tests/support/files/tree.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

namespace fs = std::filesystem;
using Support::describeTree;
using Support::writeFile;
using testing::AnyOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class FilesystemFaults : public Enumeration {
protected:
  void TearDown() override { fs::remove_all(folder.path()); }

  Operation operation(const std::string& name) const {
    Operation result;
    result.command = {Support::program("krv-fault-target"), name, from, to};
    return result;
  }

  /// Creates a file with some attributes, if the file system keeps attributes.
  void makeFile(const fs::path& path, const std::string& content, fs::perms permissions) const {
    writeFile(path, content);
    if (Support::keepsAttributes(path.parent_path())) {
      Support::attach(path, "user.one", "first");
      Support::attach(path, "user.two", "second");
    }
    fs::permissions(path, permissions);
  }

  fs::path from = folder / "from";
  fs::path to = folder / "to";
};

class CopyFaults : public FilesystemFaults {
protected:
  /// Tests the copy of the files that `make` creates. `checkFailed` checks the files after a failed copy.
  void enumerateCopy(const std::function<void()>& make, const std::map<std::string, std::size_t>& atLeast,
                     const std::function<void(const Disturbed&)>& checkFailed) {
    make();
    const std::string source = describeTree(from);
    Operation copying = operation("copy");
    copying.atLeast = atLeast;
    copying.prepare = [&] {
      fs::remove_all(from);
      fs::remove_all(to);
      make();
    };
    copying.checkUndisturbed = [&](const Support::ProcessResult& process) {
      EXPECT_EQ(process.status, 0);
      EXPECT_EQ(process.output, "");
      EXPECT_TRUE(describeTree(to) == source);
    };
    copying.checkDisturbed = [&](const Disturbed& run) {
      EXPECT_TRUE(describeTree(from) == source);
      if (run.wasKilled()) {
        fs::remove_all(to);
      } else if (run.process.status == 0) {
        // The file looks complete, but its data may be lost.
        EXPECT_FALSE(run.call.name == "close" && run.call.path == to);
        EXPECT_EQ(run.process.errors, "");
        EXPECT_TRUE(describeTree(to) == source);
        return;
      } else {
        EXPECT_EQ(run.process.status, 1);
        checkFailed(run);
      }
      Common::Filesystem::copy(from, to);
      EXPECT_TRUE(describeTree(to) == source);
    };
    enumerate(copying);
  }
};

/// A copy that fails half-way may leave a part; after every other failure nothing is left.
TEST_F(CopyFaults, CopyFile) {
  const std::string content((1 << 20) + 1, 'x'); // large enough for fallocate()
  const auto attributes = Support::keepsAttributes(folder.path()) ? 2U : 0U;
  const std::string subject = from.string() + " to " + to.string();
  enumerateCopy([&] { makeFile(from, content, fs::perms(0640)); },
                {{"openat", 2},
                 {"copy_file_range", 1},
                 {"fallocate", 1},
                 {"read", 1},
                 {"close", 2},
                 {"flistxattr", 2},
                 {"fgetxattr", 2 * attributes},
                 {"lsetxattr", attributes}},
                [&](const Disturbed& run) {
                  if (run.process.errors == "Filesystem: Coulnd't copy file " + subject + "\n") {
                    EXPECT_THAT(run.process.output, MatchesRegex("\\[E\\] filesystem error: [^\n]*\n"));
                    EXPECT_TRUE(!fs::exists(to) || content.starts_with(Support::readFile(to)));
                    fs::remove(to);
                    return;
                  }
                  EXPECT_EQ(describeTree(to), "nothing\n");
                  if (run.process.errors ==
                      "Filesystem: Couldn't copy " + subject + " (path " + from.string() + " doesn't exists)\n") {
                    EXPECT_THAT(run.process.output, MatchesRegex("\\[E\\] filesystem error: [^\n]*\n"));
                  } else {
                    EXPECT_THAT(run.process.errors, MatchesRegex("Filesystem: Couldn't (retrieve|attach) [^\n]*\n"));
                    EXPECT_EQ(run.process.output, "");
                  }
                });
}

/// copy_file_range(2) copies nothing from /proc.
TEST_F(FilesystemFaults, CopyFileWithoutCopyFileRange) {
  from = "/proc/version";
  const std::string content = Support::readFile(from);
  Operation copying = operation("copy");
  copying.atLeast = {{"write", 1}, {"copy_file_range", 1}};
  copying.prepare = [&] { fs::remove(to); };
  copying.checkUndisturbed = [&](const Support::ProcessResult& process) {
    EXPECT_EQ(process.status, 0);
    EXPECT_EQ(Support::readFile(to), content);
  };
  copying.checkDisturbed = [&](const Disturbed& run) {
    const std::string copied = fs::exists(to) ? Support::readFile(to) : "";
    EXPECT_TRUE(content.starts_with(copied));
    EXPECT_TRUE(copied == content || run.process.status != 0);
  };
  enumerate(copying);
}

TEST_F(CopyFaults, CopyDirectory) {
  const auto attributes = Support::keepsAttributes(folder.path()) ? 4U : 0U;
  enumerateCopy(
      [&] {
        makeFile(from / "file", "content", fs::perms(0600));
        makeFile(from / "sub/tool", "tool", fs::perms(0755));
        fs::create_directory(from / "none");
        fs::create_symlink("tool", from / "sub/link");
      },
      {{"openat", 3 + 4},
       {"mkdir", 3},
       {"symlink", 1},
       {"readlink", 1},
       {"getdents64", 6},
       {"close", 7},
       {"lsetxattr", attributes}},
      [&](const Disturbed& run) {
        EXPECT_EQ(describeTree(to), "nothing\n");
        EXPECT_THAT(run.process.errors, MatchesRegex("Filesystem: [^\n]*\n"));
        EXPECT_THAT(run.process.output, Not(HasSubstr("cleanup")));
      });
}

class MoveFaults : public FilesystemFaults {
protected:
  /// Tests a move onto the entry that `prepare` creates.
  void enumerateMove(const std::function<void()>& prepare, const std::map<std::string, std::size_t>& atLeast) {
    Operation moving = operation("move");
    std::string source, destination;
    moving.atLeast = atLeast;
    moving.prepare = [&] {
      fs::remove_all(from);
      fs::remove_all(folder / "a");
      makeFile(from, "new", fs::perms(0640));
      prepare();
      source = describeTree(from);
      destination = describeTree(to);
    };
    moving.checkUndisturbed = [&](const Support::ProcessResult& process) {
      EXPECT_EQ(process.status, 0);
      EXPECT_EQ(process.output, "");
      expectMoved(source);
    };
    moving.checkDisturbed = [&](const Disturbed& run) {
      const bool moved = !fs::exists(from);
      if (!run.wasKilled()) {
        EXPECT_EQ(run.process.status, moved ? 0 : 1);
      }
      if (moved)
        return expectMoved(source);
      EXPECT_EQ(describeTree(from), source);
      EXPECT_EQ(describeTree(to), destination);
      if (!run.wasKilled()) {
        EXPECT_THAT(run.process.output, MatchesRegex("\\[E\\] filesystem error: [^\n]*\n"));
        EXPECT_EQ(run.process.errors, "Filesystem: Couldn't move " + from.string() + " to " + to.string() + "\n");
      }
      Common::Filesystem::move(from, to);
      expectMoved(source);
    };
    enumerate(moving);
  }

  void expectMoved(const std::string& source) const {
    EXPECT_EQ(describeTree(from), "nothing\n");
    EXPECT_EQ(describeTree(to), source);
  }

  MoveFaults() { to = folder / "a/b/to"; }
};

TEST_F(MoveFaults, MoveOntoAFile) {
  enumerateMove([&] { makeFile(to, "old", fs::perms(0600)); }, {{"rename", 1}, {Support::statusCall, 1}});
}

TEST_F(MoveFaults, MoveIntoAMissingDirectory) {
  enumerateMove([] {}, {{"rename", 1}, {"mkdir", 2}});
}

} // namespace
