// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/change_plan.h"
#include "tests/sandbox/store/store_operation.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/process/preload.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <iostream>

#include <fcntl.h>

namespace {

namespace fs = std::filesystem;
using Sandbox::Change;
using Sandbox::ChangePlan;
using StoreTest::Operation;
using StoreTest::sample;
using Support::Fault;
using Support::SeenCall;
using testing::ElementsAre;

bool isRemovalOfTheJournal(const SeenCall& call) {
  return call.name == "unlinkat" && call.path.ends_with("/transaction/journal");
}

bool isSync(const SeenCall& call) {
  return call.name == "syncfs";
}

/// The state of the disk after a power loss: what has been changed since the last sync may be there or not, in any
/// combination.
class PowerLoss : public StoreTest::OperationFixture, public testing::WithParamInterface<Operation> {
protected:
  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
    prepare(GetParam());
  }

  /// The power fails just before the operation makes this call, and everything so far is on the disk.
  void stopBefore(const SeenCall& call) {
    restore();
    ASSERT_TRUE(run(Fault{.call = call, .kind = Fault::Kind::KillBefore}).metFault);
  }

  SeenCall secondSync() const {
    const auto last = std::find_if(m_calls.rbegin(), m_calls.rend(), isSync);
    return last != m_calls.rend() ? *last : throw std::runtime_error("The operation does not sync");
  }

  ChangePlan plan() const { return Sandbox::planFrom(Support::readFile(transaction() / "journal")).value(); }

  /// The disk has lost this change, which was made.
  void lose(const Change& change) const {
    const fs::path place = root() / change.path;
    const std::string number = std::to_string(change.number);
    const bool isExchange = change.kind == Change::Kind::Replace;
    const fs::path file = transaction() / (change.kind == Change::Kind::Delete ? "old" : "new") / number;
    const auto& [from, to] = change.kind == Change::Kind::Delete ? std::pair(file, place) : std::pair(place, file);
    ASSERT_EQ(renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), isExchange ? RENAME_EXCHANGE : RENAME_NOREPLACE),
              0)
        << from;
  }

  void loseDirectories(const ChangePlan& plan) const {
    for (const auto& directory : plan.directoryModes)
      fs::permissions(root() / directory.path, directory.earlier);
    for (auto path = plan.newDirectories.rbegin(); path != plan.newDirectories.rend(); ++path)
      ASSERT_TRUE(fs::remove(root() / *path)) << *path;
  }

  /// Keeps the database as it is before the operation, for loseDatabase().
  void keepDatabase() const { Support::runOrThrow({"cp", "-a", database(root()), m_rpm.path() / "kept-database"}); }

  void loseDatabase() const {
    fs::remove_all(database(root()));
    Support::runOrThrow({"cp", "-a", m_rpm.path() / "kept-database", database(root())});
  }

  void loseRecord() const { fs::rename(transaction() / "registry", root() / "var/lib/krv/registry"); }

  /// The line with which the next store says how the transaction ended.
  static std::string line(bool isRecorded) {
    return std::string("[I] ") + (isRecorded ? "Finished" : "Took back") + " an interrupted transaction: app\n";
  }

  void expectRecovery(const std::string& log, const std::string& expected) {
    const Support::ProcessResult recovery = open().process;
    EXPECT_EQ(recovery.output, log);
    EXPECT_EQ(recovery.errors, "");
    EXPECT_EQ(recovery.status, 0);
    EXPECT_EQ(comparableState(), expected);
  }

  /// A state whose recovery has to make every change of the operation, or to undo it.
  void prepareRecovery(bool isRecorded) {
    stopBefore(secondSync());
    if (!isRecorded)
      return loseRecord();
    const ChangePlan plan = this->plan();
    for (const Change& change : plan.changes)
      lose(change);
    loseDirectories(plan);
  }

  static bool isOfTheDatabase(const SeenCall& call) { return call.path.find("/var/lib/rpm") != call.path.npos; }

private:
  static std::string database(const fs::path& root) { return root / "var/lib/rpm"; }
};

/// The step of the transaction that a call belongs to; nothing for calls that change nothing.
std::string stepOf(const SeenCall& call, const fs::path& root) {
  const std::string path = fs::path(call.path).lexically_relative(root);
  const std::string folder = "var/lib/krv/sandbox/transaction/";
  if (isSync(call))
    return "sync";
  if (call.name == "renameat2" || (call.name == "mkdirat" && path.starts_with("opt")))
    return "change the root";
  if (call.name == "write" && path == folder + "package.rpm")
    return "copy the package";
  if (call.name.starts_with("write") && path.starts_with(folder + "new/"))
    return "unpack";
  if (call.name == "linkat" && path == "var/lib/krv/registry")
    return "keep the registry";
  if (call.name == "write" && path == folder + "journal")
    return "write the journal";
  if (call.name == "pwrite64" && path == "var/lib/rpm/rpmdb.sqlite-wal")
    return "change the database";
  if (call.name.starts_with("fchmodat") || call.name == "chmod")
    return path.find("/opt/") != path.npos ? "set modes" : "";
  if (call.name.starts_with("rename") && path == "var/lib/krv/registry.next")
    return "record";
  if (isRemovalOfTheJournal(call))
    return "remove the journal";
  if (call.name == "unlinkat" && path.starts_with(folder))
    return "remove the rest";
  return "";
}

TEST_P(PowerLoss, FindsEverythingSyncedInTheRightOrder) {
  std::vector<std::string> steps;
  for (const SeenCall& call : m_calls) {
    const std::string step = stepOf(call, root());
    if (!step.empty() && (steps.empty() || steps.back() != step))
      steps.push_back(step);
  }
  std::erase(steps, "set modes");
  // SQLite prepares itself when the database is opened.
  const auto first = std::ranges::find_if(steps, [](const auto& step) { return step != "change the database"; });
  steps.erase(steps.begin(), first);
  std::vector<std::string> expected = {"copy the package",    "unpack",         "keep the registry",
                                       "write the journal",   "sync",           "change the root",
                                       "change the database", "record",         "sync",
                                       "remove the journal",  "remove the rest"};
  if (GetParam() == Operation::Removal)
    expected.erase(expected.begin(), expected.begin() + 2);
  EXPECT_EQ(steps, expected);
}

TEST_P(PowerLoss, BeforeTheFirstSyncHasChangedNothing) {
  const SeenCall sync = callThat(isSync);
  const fs::path journal = transaction() / "journal";
  const std::string anonymous = "[I] Took back an interrupted transaction\n";
  const auto after = [&](const std::function<void()>& loss, const std::string& log) {
    stopBefore(sync);
    loss();
    expectRecovery(log, m_before);
  };
  after([&] { fs::remove(journal); }, anonymous);
  after([&] { fs::resize_file(journal, 0); }, anonymous);
  after([&] { fs::resize_file(journal, fs::file_size(journal) / 2); }, anonymous);
  after([&] { Support::writeFile(journal, std::string(fs::file_size(journal), '\0')); }, anonymous);
  after([&] { fs::remove_all(transaction()); }, "");
  after(
      [&] {
        Support::runOrThrow({"sh", "-c", "cd \"$1\" && rm -r new old registry", "", transaction()});
      },
      line(false));
  after(
      [&] {
        Support::runOrThrow({"find", transaction() / "new", "-type", "f", "-exec", "truncate", "-s0", "{}", "+"});
      },
      line(false));
  after(
      [&] {
        fs::remove(transaction() / "registry"); // it is also the registry itself
        Support::runOrThrow({"find", transaction(), "-type", "f", "-exec", "truncate", "-s0", "{}", "+"});
      },
      anonymous);
}

/// Every change for itself is lost, or is the only one that is not lost; the database and the record as well.
TEST_P(PowerLoss, BeforeTheSecondSyncLeavesAllOrNothing) {
  const SeenCall end = secondSync();
  restore();
  keepDatabase();
  stopBefore(end);
  const std::size_t changes = plan().changes.size();
  const std::size_t all = changes;
  std::size_t states = 0;
  for (const bool isRecorded : {true, false}) {
    for (const bool isInDatabase : {true, false}) {
      for (std::size_t one = 0; one <= all; ++one) {
        for (const bool isLost : {true, false}) {
          if (one != all && (one % 2 == 0) == isInDatabase)
            continue; // every second state with each database is enough
          stopBefore(end);
          const ChangePlan plan = this->plan();
          for (std::size_t i = 0; i < changes; ++i) {
            if ((i == one) == isLost)
              lose(plan.changes[i]);
          }
          if (one == all && !isLost)
            loseDirectories(plan);
          if (!isInDatabase)
            loseDatabase();
          if (!isRecorded)
            loseRecord();
          SCOPED_TRACE(std::to_string(one) + (isLost ? " lost" : " kept") + (isInDatabase ? ", in the database" : ""));
          expectRecovery(line(isRecorded), isRecorded ? m_after : m_before);
          ++states;
        }
      }
    }
  }
  EXPECT_EQ(states, 4 * changes + 8);
}

TEST_P(PowerLoss, AfterTheSecondSyncLosesNothing) {
  const auto after = [&](const std::function<void()>& loss, const std::string& log) {
    stopBefore(callThat(isRemovalOfTheJournal));
    loss();
    expectRecovery(log, m_after);
  };
  const auto loseNothing = [] {};
  const auto loseRemovalOfDirectories = [&] {
    for (auto path = plan().obsoleteDirectories; !path.empty(); path.pop_back())
      fs::create_directory(root() / path.back());
  };
  after(loseNothing, line(true));
  after(loseRemovalOfDirectories, line(true));
  after([&] { fs::remove(transaction() / "journal"); }, "[I] Took back an interrupted transaction\n");
  after([&] { fs::remove_all(transaction()); }, "");
}

/// The end of the process stands for a power loss that loses nothing. The one that loses anything comes to the same
/// states as above.
TEST_P(PowerLoss, DuringTheRecoveryLeavesAllOrNothing) {
  std::size_t kills = 0;
  for (const bool isRecorded : {true, false}) {
    prepareRecovery(isRecorded);
    for (const SeenCall& call : open().calls) {
      if (!isChange(call) || isOfTheDatabase(call))
        continue;
      prepareRecovery(isRecorded);
      ASSERT_TRUE(open(Fault{.call = call, .kind = Fault::Kind::KillBefore}).metFault);
      SCOPED_TRACE(call.name + " " + call.path);
      EXPECT_EQ(open().process.status, 0);
      EXPECT_EQ(comparableState(), isRecorded ? m_after : m_before);
      ++kills;
    }
  }
  EXPECT_GE(kills, 20);
}

/// The recovery may fail, but then the next one completes it. A transaction whose journal cannot be read is put aside.
/// Every fourth call fails.
TEST_P(PowerLoss, IsRecoveredFromAfterAnErrorDuringTheRecovery) {
  std::size_t faults = 0;
  for (const bool isRecorded : {true, false}) {
    prepareRecovery(isRecorded);
    const std::vector<SeenCall> calls = open().calls;
    for (std::size_t i = isRecorded ? 0 : 2; i < calls.size(); i += 4 * sample) {
      const SeenCall& call = calls[i];
      if (isOfTheDatabase(call) || !call.path.starts_with(root().string()) || std::ranges::count(call.errors, EIO) == 0)
        continue;
      prepareRecovery(isRecorded);
      const auto result = open(Fault{.call = call, .kind = Fault::Kind::Error, .error = EIO});
      ASSERT_TRUE(result.metFault);
      SCOPED_TRACE(call.name + " " + call.path + ", call " + std::to_string(call.number) + ": " +
                   result.process.output + result.process.errors);
      EXPECT_LT(result.process.status, 2);
      ++faults;
      if (fs::exists(home() / "unreadable-transaction")) {
        EXPECT_TRUE(call.path.starts_with(home().string())) << call.path;
        continue;
      }
      EXPECT_EQ(open().process.status, 0);
      EXPECT_EQ(comparableState(), isRecorded ? m_after : m_before);
    }
  }
  EXPECT_GE(faults * sample, 20);
}

TEST_P(PowerLoss, IsNotRiskedWhenTheDiskCannotSync) {
  const std::string error = "Couldn't sync the file system of: " + home().string();
  const std::string reason = "[E] Input/output error\n";
  const auto failingFrom = [&](int first, int last) {
    restore();
    int count = 0;
    const auto result =
        run({}, [&](const SeenCall& call) { return isSync(call) && ++count >= first && count <= last ? EIO : 0; });
    EXPECT_EQ(result.process.errors, error + "\n");
    EXPECT_EQ(result.process.status, 1);
    return result.process.output;
  };
  for (const int first : {1, 2}) {
    EXPECT_EQ(failingFrom(first, first), reason);
    EXPECT_EQ(comparableState(), m_before);
    EXPECT_EQ(failingFrom(first, 9),
              reason + reason + "[E] " + error + "\n[W] The package store will clean up later\n");
    expectRecovery(line(false), m_before);
  }
}

/// The library with which the test of power losses on a virtual device shows that it can fail.
TEST_P(PowerLoss, IsNotGuardedAgainstWithTheLibraryThatNeverSyncs) {
  const auto syncs = [&](const Support::Environment& environment) {
    restore();
    const auto result = run({}, {}, environment);
    EXPECT_EQ(result.process.status, 0);
    EXPECT_EQ(comparableState(), m_after);
    return std::ranges::count_if(result.calls,
                                 [](const SeenCall& call) { return call.name.find("sync") != call.name.npos; });
  };
  EXPECT_GT(syncs({}), 2);
  EXPECT_EQ(syncs(Support::preloading(KRV_NO_SYNC_SHIM)), 0);
}

} // namespace

INSTANTIATE_TEST_SUITE_P(During, PowerLoss,
                         testing::Values(Operation::Installation, Operation::Update, Operation::Removal),
                         [](const auto& suite) { return StoreTest::nameOf(suite.param); });
