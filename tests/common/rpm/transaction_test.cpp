// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/configuration.h"
#include "common/rpm/handles.h"
#include "common/rpm/transaction.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/own_process.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/packages/rpm_version.h"
#include "tests/support/process/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

#include <algorithm>
#include <stdexcept>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Common::Rpm::Reader;
using Common::Rpm::RpmTransaction;
using Support::CapturedLog;
using Support::errorOf;
using Support::PackageInput;
using testing::ElementsAre;
using testing::IsEmpty;

class Transaction : public testing::Test {
protected:
  /// Adds a package to the database without its files.
  void install(const PackageInput& input) const {
    const std::filesystem::path package = m_sandbox.path() / (input.name + ".rpm");
    m_sandbox.build(input, package);
    Support::runOrThrow({"rpm", "-i", "--justdb", "--nodeps", "--noscripts", package.string()}, {});
  }

  static std::vector<std::string> installed(const RpmTransaction& transaction) {
    std::vector<std::string> names;
    RpmTransaction::forEachInstalled(transaction.installedPackages(),
                                     [&](const Reader& reader) { names.push_back(reader.tag(RPMTAG_NEVRA)); });
    std::sort(names.begin(), names.end());
    return names;
  }

  static void eraseByName(RpmTransaction& transaction, const std::string& name) {
    RpmTransaction::forEachInstalled(transaction.installedPackages(), [&](const Reader& reader) {
      if (reader.tag(RPMTAG_NAME) == name)
        transaction.erase(reader);
    });
  }

  Support::RpmSandbox m_sandbox;
};

/// With a terminal on standard input librpm waits for a lock that another process has. Here standard input is not a
/// terminal.
class NoTerminal {
public:
  NoTerminal() : m_before(dup(STDIN_FILENO)) {
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    close(nothing);
  }
  ~NoTerminal() {
    dup2(m_before, STDIN_FILENO);
    close(m_before);
  }
  NoTerminal(const NoTerminal&) = delete;
  NoTerminal& operator=(const NoTerminal&) = delete;

private:
  int m_before;
};

/// Another process that holds the lock while the object lives.
class OtherProcess {
public:
  explicit OtherProcess(rpmtxnFlags flags) {
    int ready[2];
    int end[2];
    if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(end, O_CLOEXEC) != 0 || (m_id = fork()) < 0)
      throw std::runtime_error("no second process");
    if (m_id == 0) {
      close(end[1]);
      holdLock(flags, ready[1], end[0]);
    }
    close(ready[1]);
    close(end[0]);
    m_end = end[1];
    char answer = 'n';
    const bool locked = read(ready[0], &answer, 1) == 1 && answer == 'y';
    close(ready[0]);
    if (!locked)
      throw std::runtime_error("the second process did not get the lock");
  }

  ~OtherProcess() {
    close(m_end);
    waitpid(m_id, nullptr, 0);
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

private:
  [[noreturn]] static void holdLock(rpmtxnFlags flags, int ready, int end) {
    try {
      const RpmTransaction transaction(flags);
      char nothing;
      if (write(ready, "y", 1) == 1 && read(end, &nothing, 1) >= 0)
        _exit(0);
    } catch (const std::exception&) {
    }
    _exit(1);
  }

  pid_t m_id = -1;
  int m_end = -1;
};

TEST_F(Transaction, VisitsNothingInAnEmptyDatabase) {
  const RpmTransaction transaction(RPMTXN_READ);
  EXPECT_THAT(installed(transaction), IsEmpty());
}

TEST_F(Transaction, VisitsEveryInstalledPackage) {
  install({.name = "first"});
  install({.name = "second", .version = "2.0"});
  const RpmTransaction transaction(RPMTXN_READ);
  EXPECT_THAT(installed(transaction), ElementsAre("first-1.0-1.noarch", "second-2.0-1.noarch"));
}

TEST_F(Transaction, StartsEachIteratorAtTheBeginning) {
  install({.name = "only"});
  const RpmTransaction transaction(RPMTXN_READ);
  EXPECT_THAT(installed(transaction), ElementsAre("only-1.0-1.noarch"));
  EXPECT_THAT(installed(transaction), ElementsAre("only-1.0-1.noarch"));
}

TEST_F(Transaction, ThrowsBadFunctionCallForAnEmptyVisitor) {
  install({.name = "only"});
  const RpmTransaction transaction(RPMTXN_READ);
  EXPECT_THROW(RpmTransaction::forEachInstalled(transaction.installedPackages(), nullptr), std::bad_function_call);
}

TEST_F(Transaction, PassesOnTheExceptionOfAVisitor) {
  install({.name = "first"});
  install({.name = "second"});
  const RpmTransaction transaction(RPMTXN_READ);
  int visits = 0;
  EXPECT_THROW(RpmTransaction::forEachInstalled(transaction.installedPackages(),
                                                [&](const Reader&) {
                                                  ++visits;
                                                  throw std::out_of_range("enough");
                                                }),
               std::out_of_range);
  EXPECT_EQ(visits, 1);
}

std::string errorOfBeginning(rpmtxnFlags flags) {
  return errorOf([flags] { const RpmTransaction transaction(flags); });
}

TEST_F(Transaction, RefusesAWriterWhileAnotherProcessReads) {
  const NoTerminal terminal;
  const OtherProcess other(RPMTXN_READ);
  EXPECT_EQ(errorOfBeginning(RPMTXN_WRITE), "Internal: Couldn't begin rpm transaction");
}

// The read lock is exclusive in librpm 4.18 and shared in 4.20.
TEST_F(Transaction, RefusesAReaderWhileAnotherProcessReadsUnlessTheLockIsShared) {
  const NoTerminal terminal;
  const OtherProcess other(RPMTXN_READ);
  EXPECT_EQ(errorOfBeginning(RPMTXN_READ),
            Support::librpmIsAtLeast("4.20") ? "no error" : "Internal: Couldn't begin rpm transaction");
}

TEST_F(Transaction, RefusesToBeginWhileAnotherProcessWrites) {
  const NoTerminal terminal;
  const OtherProcess other(RPMTXN_WRITE);
  EXPECT_EQ(errorOfBeginning(RPMTXN_READ), "Internal: Couldn't begin rpm transaction");
  EXPECT_EQ(errorOfBeginning(RPMTXN_WRITE), "Internal: Couldn't begin rpm transaction");
}

TEST_F(Transaction, ReleasesTheLockWithItsLastCopy) {
  const NoTerminal terminal;
  auto transaction = std::make_unique<RpmTransaction>(RPMTXN_READ);
  auto copy = std::make_unique<RpmTransaction>(*transaction);
  transaction.reset();
  EXPECT_THROW(OtherProcess{RPMTXN_WRITE}, std::runtime_error);
  copy.reset();
  EXPECT_NO_THROW(OtherProcess{RPMTXN_WRITE});
}

TEST_F(Transaction, RunsWithNothingToDo) {
  install({.name = "only"});
  RpmTransaction transaction(RPMTXN_WRITE);
  transaction.run();
  EXPECT_THAT(installed(transaction), ElementsAre("only-1.0-1.noarch"));
}

TEST_F(Transaction, ErasesQueuedPackagesFromTheDatabase) {
  install({.name = "first"});
  install({.name = "second"});
  const CapturedLog log;
  {
    RpmTransaction transaction(RPMTXN_WRITE);
    transaction.addFlags(RPMTRANS_FLAG_JUSTDB);
    eraseByName(transaction, "first");
    transaction.run();
  }
  const RpmTransaction transaction(RPMTXN_READ);
  EXPECT_THAT(installed(transaction), ElementsAre("second-1.0-1.noarch"));
  EXPECT_EQ(log.text(), "");
}

// The second call must keep the flag of the first, which leaves the file on disk.
TEST_F(Transaction, AddsFlagsToThoseThatAreSet) {
  const std::filesystem::path file = m_sandbox.path() / "installed/file";
  install({.name = "only",
           .install = "mkdir -p %{buildroot}" + file.parent_path().string() + "; touch %{buildroot}" + file.string(),
           .files = file.string()});
  Support::writeFile(file, "");
  RpmTransaction transaction(RPMTXN_WRITE);
  transaction.addFlags(RPMTRANS_FLAG_JUSTDB);
  transaction.addFlags(RPMTRANS_FLAG_NODOCS);
  eraseByName(transaction, "only");
  transaction.run();
  EXPECT_THAT(installed(transaction), IsEmpty());
  EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(Transaction, ErasesTheFilesToo) {
  const std::filesystem::path file = m_sandbox.path() / "installed/file";
  install({.name = "only",
           .install = "mkdir -p %{buildroot}" + file.parent_path().string() + "; touch %{buildroot}" + file.string(),
           .files = file.string()});
  Support::writeFile(file, "");
  RpmTransaction transaction(RPMTXN_WRITE);
  eraseByName(transaction, "only");
  transaction.run();
  EXPECT_THAT(installed(transaction), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(Transaction, RefusesToEraseAPackageThatIsNotInstalled) {
  m_sandbox.build({}, m_sandbox.path() / "sample.rpm");
  RpmTransaction transaction(RPMTXN_WRITE);
  EXPECT_EQ(errorOf([&] { transaction.erase(Reader((m_sandbox.path() / "sample.rpm").string())); }),
            "Internal: Couldn't add erase element to the RPM transaction");
}

// With this flag librpm returns a positive number of problems and does nothing.
TEST_F(Transaction, ReturnsNormallyWhenLibrpmFindsProblems) {
  install({.name = "only"});
  RpmTransaction transaction(RPMTXN_WRITE);
  transaction.addFlags(RPMTRANS_FLAG_BUILD_PROBS);
  eraseByName(transaction, "only");
  transaction.run();
  EXPECT_THAT(installed(transaction), ElementsAre("only-1.0-1.noarch"));
}

TEST_F(Transaction, FailsWhenAScriptOfAPackageFails) {
  install({.name = "stubborn", .install = "", .files = "", .sections = "%preun -p <lua>\nerror('no')"});
  RpmTransaction transaction(RPMTXN_WRITE);
  eraseByName(transaction, "stubborn");
  EXPECT_EQ(errorOf([&] { transaction.run(); }), "Internal: Couldn't run rpm transaction");
  EXPECT_THAT(installed(transaction), ElementsAre("stubborn-1.0-1.noarch"));
}

TEST_F(Transaction, FailsWithoutItsDatabase) {
  install({.name = "only"});
  RpmTransaction transaction(RPMTXN_WRITE);
  eraseByName(transaction, "only");
  std::filesystem::rename(m_sandbox.database(), m_sandbox.path() / "elsewhere");
  Support::writeFile(m_sandbox.database(), "no database");
  EXPECT_EQ(errorOf([&] { transaction.run(); }), "Internal: Couldn't run rpm transaction");
}

TEST_F(Transaction, VisitsNothingInADatabaseThatCannotBeOpened) {
  const RpmTransaction transaction(RPMTXN_READ);
  std::filesystem::rename(m_sandbox.database(), m_sandbox.path() / "elsewhere");
  Support::writeFile(m_sandbox.database(), "no database");
  EXPECT_THAT(installed(transaction), IsEmpty());
}

TEST_F(Transaction, ShowsALabelAndHashMarks) {
  install({.name = "only"});
  const CapturedLog log;
  RpmTransaction transaction(RPMTXN_WRITE);
  transaction.addFlags(RPMTRANS_FLAG_JUSTDB);
  transaction.showProgress();
  eraseByName(transaction, "only");
  transaction.run();
  EXPECT_EQ(log.text(), "Preparing...                          ########################################\n"
                        "Cleaning up / removing...\n"
                        "only-1.0-1                            ########################################\n");
}

TEST_F(Transaction, ReadsTheConfigurationFirst) {
  if (Support::ranInItsOwnProcess())
    return;
  EXPECT_FALSE(Common::Rpm::isRpmConfigured());
  const RpmTransaction transaction(RPMTXN_READ);
  EXPECT_TRUE(Common::Rpm::isRpmConfigured());
  EXPECT_TRUE(std::filesystem::exists(m_sandbox.database() / ".rpm.lock"));
}

/// A header with these dependencies: name, flags, version.
class Dependencies : public testing::Test {
protected:
  Dependencies() : m_header(Common::Rpm::ownHeader(headerNew())) {}

  void add(const char* name, std::uint32_t flags, const char* version) {
    headerPutString(m_header.get(), RPMTAG_REQUIRENAME, name);
    headerPutUint32(m_header.get(), RPMTAG_REQUIREFLAGS, &flags, 1);
    headerPutString(m_header.get(), RPMTAG_REQUIREVERSION, version);
  }

  std::vector<std::string> names(std::int32_t tag) const {
    return RpmTransaction::dependencyNames(Reader(m_header.get()), tag);
  }

  const Support::RpmSandbox m_sandbox;
  const Common::Rpm::HeaderHandle m_header;
};

TEST_F(Dependencies, AreNamedInHeaderOrderWithDuplicatesAndWithoutVersions) {
  add("zebra", RPMSENSE_GREATER | RPMSENSE_EQUAL, "1.0-1");
  add("/bin/sh", 0, "");
  add("apple", RPMSENSE_LESS, "2:3.0");
  add("zebra", RPMSENSE_LESS, "2.0");
  add("config(app)", RPMSENSE_EQUAL, "1");
  EXPECT_THAT(names(RPMTAG_REQUIRENAME), ElementsAre("zebra", "/bin/sh", "apple", "zebra", "config(app)"));
}

TEST_F(Dependencies, AreSkippedWithoutAName) {
  add("first", 0, "");
  add("", 0, "");
  add(" \t", 0, "");
  add("last", 0, "");
  EXPECT_THAT(names(RPMTAG_REQUIRENAME), ElementsAre("first", "last"));
}

TEST_F(Dependencies, AreCutAtTheFirstBlank) {
  add("(one or two)", RPMSENSE_RPMLIB, "");
  EXPECT_THAT(names(RPMTAG_REQUIRENAME), ElementsAre("(one"));
}

TEST_F(Dependencies, AreOfTheRequestedKind) {
  add("needed", 0, "");
  headerPutString(m_header.get(), RPMTAG_PROVIDENAME, "provided");
  EXPECT_THAT(names(RPMTAG_PROVIDENAME), ElementsAre("provided"));
  EXPECT_THAT(names(RPMTAG_CONFLICTNAME), IsEmpty());
  EXPECT_THAT(names(RPMTAG_NAME), IsEmpty());
}

TEST_F(Dependencies, AreReadFromAPackage) {
  m_sandbox.build({.preamble = "AutoReqProv: no\nProvides: other = 1-2, other = 3, thing"},
                  m_sandbox.path() / "sample.rpm");
  EXPECT_THAT(RpmTransaction::dependencyNames(Reader((m_sandbox.path() / "sample.rpm").string()), RPMTAG_PROVIDENAME),
              ElementsAre("other", "other", "sample", "thing"));
}

} // namespace
