// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/change_plan.h"
#include "tests/sandbox/store/store_fixture.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Sandbox::PackageStore;
using Support::errorOf;

/// Tests how a store opens: after an unfinished transaction, or not at all.
class StoreRecovery : public StoreTest::Fixture {
protected:
  fs::path transaction() const { return root() / "var/lib/krv/sandbox/transaction"; }
  std::string lockFile() const { return root() / "var/lib/krv/sandbox/lock"; }

  /// The journal of a transaction of the package "p" that changes nothing.
  static std::string journalOf(const std::string& record) {
    Sandbox::ChangePlan plan;
    plan.package = "p";
    plan.record = record;
    return Sandbox::toBytes(plan);
  }

  static std::string opening() {
    return errorOf([] { const PackageStore store; });
  }
};

TEST_F(StoreRecovery, NeedsARoot) {
  fs::remove_all(root());
  EXPECT_EQ(opening(), "Filesystem: The root is not a directory: " + root().string());
}

TEST_F(StoreRecovery, NeedsAFolderForItsState) {
  Support::writeFile(root() / "var", "no directory");
  EXPECT_EQ(opening(), "Filesystem: Couldn't create directory: " + (root() / "var/lib/krv/sandbox").string());
}

TEST_F(StoreRecovery, NeedsALockFile) {
  fs::create_directories(lockFile());
  EXPECT_EQ(opening(), "Filesystem: Couldn't open lock file: " + lockFile() + ": Is a directory");
}

TEST_F(StoreRecovery, NeedsADatabase) {
  Support::writeFile(root() / "var/lib/rpm/rpmdb.sqlite", "no database, but long enough to be looked at by SQLite");
  // In another process, because librpm leaks memory if its database fails.
  const Support::ProcessResult other =
      Support::run({Support::program("store_tool"), "open"}, {{"ASAN_OPTIONS", "detect_leaks=0"}});
  EXPECT_EQ(other.errors.substr(other.errors.rfind('\n', other.errors.size() - 2) + 1),
            "Couldn't read the RPM database: " + (root() / "var/lib/rpm").string() + "\n");
  EXPECT_EQ(other.status, 1);
}

TEST_F(StoreRecovery, AllowsOneStoreAtATime) {
  store();
  EXPECT_EQ(opening(), "Internal: Another process uses the package store: " + lockFile());
  const Support::ProcessResult other = Support::run({Support::program("store_tool"), "open"});
  EXPECT_EQ(other.errors, "Another process uses the package store: " + lockFile() + "\n");
  EXPECT_EQ(other.status, 1);
  closeStore();
  EXPECT_EQ(opening(), "no error");
}

TEST_F(StoreRecovery, DropsATransactionWithoutAJournal) {
  Support::writeFile(transaction() / "new/0", "half of it");
  const Support::CapturedLog log;
  store();
  EXPECT_FALSE(fs::exists(transaction()));
  EXPECT_EQ(log.text(), "[I] Took back an interrupted transaction\n");
}

TEST_F(StoreRecovery, TakesADamagedJournalForNoChange) {
  for (const std::string bytes : {"", "half of it", "p"}) {
    Support::writeFile(transaction() / "journal", bytes);
    const Support::CapturedLog log;
    store();
    closeStore();
    EXPECT_FALSE(fs::exists(transaction()));
    EXPECT_EQ(log.text(), "[I] Took back an interrupted transaction\n");
  }
}

TEST_F(StoreRecovery, PutsAsideWhatItCannotRead) {
  const fs::path aside = root() / "var/lib/krv/sandbox/unreadable-transaction";
  for (int i = 0; i < 2; ++i) { // the earlier one goes
    Support::writeFile(transaction() / "old/0", "of the user");
    fs::create_directory(transaction() / "journal");
    const Support::CapturedLog log;
    store();
    closeStore();
    EXPECT_EQ(log.text(), "[E] Is a directory\n[E] Couldn't read file: " + (transaction() / "journal").string() +
                              "\n[E] The interrupted transaction cannot be repaired and is kept in: " + aside.string() +
                              "\n");
    EXPECT_EQ(Support::readFile(aside / "old/0"), "of the user");
  }
  install({});
  EXPECT_EQ(registry(), "event=I package=sample keyid=" + Support::Pki::instance().keyId("alice") + "\n");
}

TEST_F(StoreRecovery, NeedsTheRegistryToKnowHowItEnded) {
  Support::writeFile(transaction() / "journal", journalOf("record"));
  const fs::path registry = root() / "var/lib/krv/registry";
  fs::create_directories(registry);
  {
    const Support::CapturedLog log;
    store();
    EXPECT_EQ(log.text(), "[E] Couldn't open registry: \"" + registry.string() +
                              "\"\n[E] Couldn't read the package registry\n"
                              "[W] The package store will clean up later\n");
  }
  EXPECT_TRUE(store().list().empty());
  EXPECT_EQ(errorOf([&] { install({}); }), "Filesystem: Couldn't read the package registry");
  EXPECT_TRUE(fs::exists(transaction()));
  fs::remove(registry);
  const Support::CapturedLog log;
  install({});
  EXPECT_EQ(log.text(), "[I] Took back an interrupted transaction: p\n[I] Installed: sample 1.0-1\n");
}

/// Temporary files, locks and half of a transaction, as a power loss may leave them.
TEST_F(StoreRecovery, WorksOnAnyLeftovers) {
  install({});
  closeStore();
  const fs::path krv = root() / "var/lib/krv";
  const std::string records = Support::readFile(krv / "registry");
  for (const std::string content : {"", "timestamp=1 event=R pack"}) {
    for (const char* name : {"registry.next", "registry.lock", "sandbox/lock", "sandbox/transaction/package.rpm",
                             "sandbox/transaction/new/0", "sandbox/transaction/registry"})
      Support::writeFile(krv / name, content);
    Support::writeFile(root() / "var/lib/rpm/.rpm.lock", content);
    Support::writeFile(root() / "var/lib/rpm/rpmdb.sqlite-shm", content);
    const Support::CapturedLog log;
    store();
    EXPECT_EQ(log.text(), "[I] Took back an interrupted transaction\n");
    EXPECT_EQ(Support::readFile(krv / "registry"), records);
    EXPECT_EQ(database(), std::vector<std::string>{"sample-1.0-1.noarch"});
    install({.name = "other"});
    store().remove("other");
    closeStore();
    Support::writeFile(krv / "registry", records);
  }
}

/// The database has been made and nothing of it written.
TEST_F(StoreRecovery, WorksOnAnEmptyDatabase) {
  for (const char* file : {"rpmdb.sqlite", "rpmdb.sqlite-wal", "rpmdb.sqlite-shm"})
    Support::writeFile(root() / "var/lib/rpm" / file, "");
  install({});
  EXPECT_EQ(database(), std::vector<std::string>{"sample-1.0-1.noarch"});
}

TEST_F(StoreRecovery, PutsBackARegistryThatThePowerLossHasTorn) {
  store();
  closeStore();
  const fs::path registry = root() / "var/lib/krv/registry";
  const std::string records = "timestamp=1 event=R package=removed keyid=k\n";
  for (const std::string& torn : {std::string(), std::string(40, '\0')}) {
    Support::writeFile(transaction() / "journal", journalOf("timestamp=2 event=I package=p keyid=k"));
    Support::writeFile(transaction() / "registry", records);
    Support::writeFile(registry, torn);
    const Support::CapturedLog log;
    store();
    closeStore();
    EXPECT_EQ(Support::readFile(registry), records);
  }
}

TEST_F(StoreRecovery, UndoesATransactionThatCannotBeRegistered) {
  install({});
  fs::create_directory(root() / "var/lib/krv/registry.next");
  expectRefused(
      package(
          {.version = "2.0", .install = "mkdir -p %{buildroot}/opt/x; touch %{buildroot}/opt/x/y", .files = "/opt/x"}),
      "Filesystem: Couldn't write to the package registry: sample");
  const std::string before = state();
  EXPECT_EQ(errorOf([&] { store().remove("sample"); }), "Filesystem: Couldn't write to the package registry: sample");
  EXPECT_EQ(state(), before);
}

TEST_F(StoreRecovery, InstallsNothingThatCannotBeRegistered) {
  fs::create_directories(root() / "var/lib/krv/registry");
  store();
  const std::string before = tree();
  EXPECT_EQ(errorOf([&] { install({}); }), "Filesystem: Couldn't read the package registry");
  EXPECT_EQ(tree(), before);
}

TEST_F(StoreRecovery, GivesEachEventItsOwnTime) {
  store();
  const fs::path registry = root() / "var/lib/krv/registry";
  const std::string key = " event=I package=sample keyid=" + Support::Pki::instance().keyId("alice") + "\n";
  Support::writeFile(registry, "timestamp=9000000000" + key);
  install({});
  EXPECT_EQ(Support::readFile(registry), "timestamp=9000000001" + key);
}

TEST_F(StoreRecovery, RefusesAnEventAfterTheLastPossibleTime) {
  store();
  Support::writeFile(root() / "var/lib/krv/registry", "timestamp=9223372036854775807 event=R package=sample keyid=k\n");
  expectRefused(package({}), "Filesystem: The package registry has an event with the latest possible time: sample");
}

} // namespace
