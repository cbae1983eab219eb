// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store/store_fixture.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/faults/supervised.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/process.h"
#include "tests/support/process/scoped_mask.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>

#include <fstream>
#include <set>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Support::PackageInput;
using Support::SeenCall;
using testing::ElementsAre;

mode_t modeOf(const fs::path& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & ALLPERMS : 0;
}

/// Tests what another process can change while the store works, at a moment that the test chooses.
class StoreAttack : public StoreTest::Fixture {
protected:
  using When = std::function<bool(const SeenCall&)>;

  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
    // The attacker can reach the root and has a folder of his own.
    fs::permissions(m_rpm.path(), fs::perms(0755));
    fs::create_directory(m_attacker);
    fs::create_directory(m_outside);
    Support::writeFile(m_outside / "file", "precious");
  }

  /// Runs the store in another process. Before the first call for which `when` returns true, the attacker runs
  /// `attack`.
  Support::ProcessResult runAttacked(const std::vector<std::string>& arguments, const When& when,
                                     const std::function<void()>& attack,
                                     const std::optional<Support::Fault>& fault = {}) {
    closeStore();
    std::vector<std::string> command = {Support::program("store_tool")};
    command.insert(command.end(), arguments.begin(), arguments.end());
    bool isDone = false;
    const auto result = Support::runSupervised(command, m_environment, m_rpm.path(), fault, [&](const SeenCall& call) {
      if (isDone || !when(call))
        return 0;
      isDone = true;
      const Support::OrdinaryUser attacker(m_attacker);
      attack();
      return 0;
    });
    EXPECT_TRUE(isDone);
    m_calls = result.calls;
    return result.process;
  }

  /// The store has made its plan and is about to start the changes.
  static bool isPlanned(const SeenCall& call) { return call.name == "syncfs"; }

  /// The store is about to record that all changes are done.
  static bool isCarriedOut(const SeenCall& call) { return call.path.ends_with("/registry.next"); }

  /// Makes every later write to the registry fail, so that each operation is undone at its end.
  void closeRegistry() { fs::create_directory(registryNext()); }
  std::string registryNext() const { return root() / "var/lib/krv/registry.next"; }

  /// A package whose folder /opt/open all users can write to.
  static PackageInput inOpen(const std::string& version, const std::string& install) {
    return {.version = version,
            .install = "mkdir -p %{buildroot}/opt/open; cd %{buildroot}/opt/open\n" + install + "\nchmod 777 .",
            .files = "/opt/open"};
  }

  /// Replaces a directory in /opt/open by a symlink to a folder outside of the root.
  void exchangeForLink(const std::string& name) {
    const fs::path directory = root() / "opt/open" / name;
    std::error_code isMissing;
    fs::rename(directory, root() / "opt/open" / (name + ".gone"), isMissing);
    fs::create_directory_symlink(m_outside, directory);
  }

  void expectNothingOutside() {
    EXPECT_EQ(Support::readFile(m_outside / "file"), "precious");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_outside), {}), 1);
  }

  const Support::Environment m_environment = {{"ASAN_OPTIONS", "detect_leaks=0"}};
  const fs::path m_attacker = m_rpm.path() / "attacker";
  const fs::path m_outside = m_rpm.path() / "outside";
  std::vector<SeenCall> m_calls;
};

TEST_F(StoreAttack, CannotEnterTheTransactionFolderAtAnyTime) {
  const std::string path = package({});
  fs::permissions(path, fs::perms(06777));
  const fs::path transaction = root() / "var/lib/krv/sandbox/transaction";
  std::set<mode_t> folder;
  std::set<mode_t> copy;
  bool isOpened = false;
  const auto look = [&](const SeenCall&) {
    const fs::path packageCopy = transaction / "package.rpm";
    if (fs::exists(transaction))
      folder.insert(modeOf(transaction));
    if (!fs::exists(packageCopy))
      return 0;
    copy.insert(modeOf(packageCopy));
    if (geteuid() == 0) {
      const Support::OrdinaryUser attacker(m_attacker);
      isOpened = isOpened || std::ifstream(packageCopy).is_open();
    }
    return 0;
  };
  for (const mode_t mask : {0U, 077U}) {
    const Support::ScopedMask scope(mask);
    closeStore();
    const auto result = Support::runSupervised({Support::program("store_tool"), "install", path}, m_environment,
                                               m_rpm.path(), {}, look);
    EXPECT_EQ(result.process.status, 0) << result.process.errors;
    store().remove("sample");
  }
  EXPECT_THAT(folder, ElementsAre(0700));
  EXPECT_THAT(copy, ElementsAre(0600));
  EXPECT_FALSE(isOpened);
}

TEST_F(StoreAttack, WithASymlinkForANewDirectoryWritesNothingOutside) {
  install(inOpen("1.0", ""));
  const auto result = runAttacked({"install", package(inOpen("2.0", "mkdir new; echo x >new/file; echo y >new/more"))},
                                  isPlanned, [&] { exchangeForLink("new"); });
  EXPECT_EQ(result.errors, "Something else has come into the place of: /opt/open/new\n");
  expectNothingOutside();
  EXPECT_THAT(database(), ElementsAre("sample-1.0-1.noarch"));
}

TEST_F(StoreAttack, WithASymlinkAtAnyTimeWritesNothingOutside) {
  install(inOpen("1.0", "mkdir old; echo x >old/file; mkdir both; echo x >both/file"));
  const std::string update = package(inOpen("2.0", "mkdir both; echo changed >both/file"));
  closeStore();
  const fs::path saved = m_rpm.path() / "saved";
  Support::runOrThrow({"cp", "-a", root().string(), saved.string()});
  const auto isOfTheFiles = [](const SeenCall& call) { return call.path.find("root/opt/") != call.path.npos; };
  const std::size_t calls = [&] {
    runAttacked({"install", update}, isOfTheFiles, [] {});
    return static_cast<std::size_t>(std::ranges::count_if(m_calls, isOfTheFiles));
  }();
  for (const std::string directory : {"old", "both"}) {
    for (std::size_t last = 0; last < calls; ++last) {
      Support::runOrThrow({"rm", "-rf", root().string()});
      Support::runOrThrow({"cp", "-a", saved.string(), root().string()});
      std::size_t count = 0;
      runAttacked(
          {"install", update}, [&](const SeenCall& call) { return isOfTheFiles(call) && count++ == last; },
          [&] {
            if (fs::exists(root() / "opt/open" / directory))
              exchangeForLink(directory);
          });
      expectNothingOutside();
      const Support::CapturedLog log;
      store();
      EXPECT_FALSE(fs::exists(root() / "var/lib/krv/sandbox/transaction"));
    }
  }
  EXPECT_GE(calls, 8);
}

TEST_F(StoreAttack, WithAFileAtTheDestinationLosesNoFile) {
  install(inOpen("1.0", ""));
  const auto result = runAttacked({"install", package(inOpen("2.0", "echo x >first; echo x >new"))}, isPlanned,
                                  [&] { Support::writeFile(root() / "opt/open/new", "of the user"); });
  EXPECT_EQ(result.errors, "Something else has come into the place of: /opt/open/new\n");
  EXPECT_EQ(tree(), "opt 755 directory\nopt/open 777 directory\nopt/open/new 644 \"of the user\"\n");
}

TEST_F(StoreAttack, WithADirectoryAtTheDestinationLosesNoDirectory) {
  if (geteuid() != 0)
    GTEST_SKIP() << "only root can make a directory of another user, which the store tells from its own by the owner";
  install(inOpen("1.0", ""));
  const auto result = runAttacked({"install", package(inOpen("2.0", "mkdir new; echo x >new/file"))}, isPlanned,
                                  [&] { fs::create_directory(root() / "opt/open/new"); });
  EXPECT_EQ(result.errors, "Something else has come into the place of: /opt/open/new\n");
  EXPECT_EQ(tree(), "opt 755 directory\nopt/open 777 directory\nopt/open/new 755 directory\n");
}

TEST_F(StoreAttack, OnAReplacedFileLosesNoFile) {
  install(inOpen("1.0", "echo 1 >a; echo 1 >both"));
  const auto result = runAttacked({"install", package(inOpen("2.0", "echo 2 >a; echo 2 >both"))}, isPlanned, [&] {
    fs::rename(root() / "opt/open/both", m_attacker / "both");
    Support::writeFile(root() / "opt/open/both", "of the user");
  });
  EXPECT_EQ(result.errors, "Something else has come into the place of: /opt/open/both\n");
  EXPECT_EQ(tree(), "opt 755 directory\nopt/open 777 directory\nopt/open/a 644 \"1\n\"\n"
                    "opt/open/both 644 \"of the user\"\n");
}

TEST_F(StoreAttack, OnARemovedFileLosesNoFile) {
  install(inOpen("1.0", "echo 1 >a; echo 1 >old"));
  const auto result = runAttacked({"remove", "sample"}, isPlanned, [&] {
    fs::rename(root() / "opt/open/old", m_attacker / "old");
    Support::writeFile(root() / "opt/open/old", "of the user");
  });
  EXPECT_EQ(result.errors, "Something else has come into the place of: /opt/open/old\n");
  EXPECT_EQ(tree(), "opt 755 directory\nopt/open 777 directory\nopt/open/a 644 \"1\n\"\n"
                    "opt/open/old 644 \"of the user\"\n");
}

TEST_F(StoreAttack, DuringTheUndoChangesNothingOutside) {
  install(inOpen("1.0", "mkdir old; echo x >old/file"));
  closeRegistry();
  const auto result =
      runAttacked({"install", package(inOpen("2.0", "mkdir new; echo x >new/file"))}, isCarriedOut, [&] {
        exchangeForLink("new");
        // The emptied directory still exists, and the undo would move its file back there.
        exchangeForLink("old");
      });
  EXPECT_EQ(result.errors, "Couldn't write to the package registry: sample\n");
  EXPECT_EQ(result.output, "[E] Couldn't write records to the next registry: \"" + registryNext() +
                               "\"\n"
                               "[W] Couldn't put back what the transaction has removed: /opt/open/old/file\n");
  expectNothingOutside();
}

TEST_F(StoreAttack, DuringTheUndoLosesNoFile) {
  install(inOpen("1.0", "echo 1 >both; echo 1 >old"));
  closeRegistry();
  runAttacked({"install", package(inOpen("2.0", "echo 2 >both; echo 2 >new"))}, isCarriedOut, [&] {
    for (const char* name : {"both", "new"})
      fs::rename(root() / "opt/open" / name, m_attacker / name);
    for (const char* name : {"both", "old", "new"})
      Support::writeFile(root() / "opt/open" / name, "of the user");
  });
  EXPECT_EQ(tree(), "opt 755 directory\nopt/open 777 directory\nopt/open/both 644 \"of the user\"\n"
                    "opt/open/new 644 \"of the user\"\nopt/open/old 644 \"of the user\"\n");
}

TEST_F(StoreAttack, BeforeTheRecoveryChangesNothingOutside) {
  install(inOpen("1.0", "mkdir old; echo x >old/file"));
  const std::string update = package(inOpen("2.0", "mkdir new; echo x >new/file"));
  closeStore();
  const fs::path saved = m_rpm.path() / "saved";
  Support::runOrThrow({"cp", "-a", root().string(), saved.string()});
  runAttacked({"install", update}, isPlanned, [] {});
  const auto carriedOut = std::ranges::find_if(m_calls, isCarriedOut);
  ASSERT_NE(carriedOut, m_calls.end());
  Support::runOrThrow({"rm", "-rf", root().string()});
  Support::runOrThrow({"cp", "-a", saved.string(), root().string()});
  runAttacked(
      {"install", update}, isPlanned, [] {},
      Support::Fault{.call = *carriedOut, .kind = Support::Fault::Kind::KillBefore});
  exchangeForLink("new");
  exchangeForLink("old");
  const Support::CapturedLog log;
  store();
  EXPECT_EQ(log.text(), "[W] Couldn't put back what the transaction has removed: /opt/open/old/file\n"
                        "[I] Took back an interrupted transaction: sample\n");
  expectNothingOutside();
  EXPECT_THAT(database(), ElementsAre("sample-1.0-1.noarch"));
}

TEST_F(StoreAttack, OnTheSymlinkToThePackageChangesNothing) {
  const std::string path = package({});
  const std::string other = package({.version = "2.0"});
  const fs::path link = m_attacker / "link.rpm";
  fs::create_symlink(path, link);
  const auto isRead = [&](const SeenCall& call) {
    return call.name.find("read") != call.name.npos && call.path == path;
  };
  const auto result = runAttacked({"install", link}, isRead, [&] {
    fs::remove(link);
    fs::create_symlink(other, link);
  });
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(database(), ElementsAre("sample-1.0-1.noarch"));
}

TEST_F(StoreAttack, WithAGrowingPackageDoesNotFillTheDisk) {
  const std::string path = package({});
  const auto size = fs::file_size(path);
  const fs::path copy = root() / "var/lib/krv/sandbox/transaction/package.rpm";
  std::uintmax_t largest = 0;
  const auto isCopied = [&](const SeenCall& call) {
    std::error_code isMissing;
    const std::uintmax_t now = fs::file_size(copy, isMissing);
    largest = isMissing ? largest : std::max(largest, now);
    return call.path == copy && call.name == "openat";
  };
  const fs::path original = path;
  closeStore();
  bool isGrown = false;
  const auto result = Support::runSupervised({Support::program("store_tool"), "install", path}, m_environment,
                                             m_rpm.path(), {}, [&](const SeenCall& call) {
                                               if (isCopied(call) && !isGrown) {
                                                 isGrown = true;
                                                 fs::resize_file(original, size + (1 << 20));
                                               }
                                               return 0;
                                             });
  EXPECT_EQ(result.process.errors, "");
  EXPECT_TRUE(isGrown);
  EXPECT_EQ(largest, size);
}

} // namespace
