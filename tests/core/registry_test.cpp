// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "driver/log/log_message.h"
#include "tests/core/registry_sandbox.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/files/special_files.h"
#include "tests/support/files/write_lease.h"
#include "tests/support/process/ordinary_user.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Core::KRV::Registry;
using Core::KRV::RegistryRecord;
using Support::CapturedLog;
using Support::errorOf;
using Support::readFile;
using Support::reasonOf;
using Support::writeFile;

/// The lines of all records, then "true" or "false".
std::string readAll() {
  std::string lines;
  const bool result = Registry().foreachRecord([&](const RegistryRecord& record) { lines += toString(record) + "\n"; });
  return lines + (result ? "true" : "false");
}

unsigned permissionsOf(const fs::path& path) {
  return static_cast<unsigned>(fs::status(path).permissions());
}

/// Sets the umask in its scope.
class ScopedUmask {
public:
  explicit ScopedUmask(mode_t mask) : m_before(umask(mask)) {}
  ~ScopedUmask() { umask(m_before); }
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

private:
  mode_t m_before;
};

/// Limits the size of files in its scope; writing more fails with an error instead of a signal.
class ScopedFileSizeLimit {
public:
  explicit ScopedFileSizeLimit(rlim_t size) : m_handler(::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_before);
    const rlimit limit = {size, m_before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~ScopedFileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_before);
    ::signal(SIGXFSZ, m_handler);
  }
  ScopedFileSizeLimit(const ScopedFileSizeLimit&) = delete;
  ScopedFileSizeLimit& operator=(const ScopedFileSizeLimit&) = delete;

private:
  rlimit m_before{};
  sighandler_t m_handler;
};

class RegistryReading : public RegistrySandbox {};
class RegistryWriting : public RegistrySandbox {
protected:
  /// Expects writing a record to fail with this log, without changing the registry.
  void expectFailure(const std::string& expectedLog) {
    writeFile(file, line(1));
    const CapturedLog log;
    EXPECT_FALSE(Registry().writeRecord(record(2)));
    EXPECT_EQ(log.text(), expectedLog);
    EXPECT_EQ(readFile(file), line(1));
  }
};

TEST_F(RegistryReading, CreatesTheFolderAndAnEmptyLockFile) {
  const CapturedLog log;
  EXPECT_EQ(readAll(), "true");
  EXPECT_EQ(log.text(), "");
  std::vector<fs::path> made;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root.path()))
    made.push_back(entry.path());
  EXPECT_EQ(made, (std::vector<fs::path>{root / "var", root / "var/lib", folder, lockFile}));
  EXPECT_EQ(readFile(lockFile), "");
}

TEST_F(RegistryReading, AppliesTheUmaskToTheLockFile) {
  for (const auto& [mask, mode] : {std::pair{0027U, 0640U}, {0000U, 0666U}, {0077U, 0600U}}) {
    const ScopedUmask scopedMask(mask);
    EXPECT_EQ(readAll(), "true");
    EXPECT_EQ(permissionsOf(lockFile), mode);
    fs::remove(lockFile);
  }
}

TEST_F(RegistryReading, TruncatesAndKeepsAnExistingLockFile) {
  writeFile(lockFile, "old");
  fs::permissions(lockFile, fs::perms::owner_read | fs::perms::owner_write);
  fs::create_hard_link(lockFile, root / "same");
  EXPECT_EQ(readAll(), "true");
  EXPECT_EQ(readFile(lockFile), "");
  EXPECT_TRUE(fs::equivalent(lockFile, root / "same"));
  EXPECT_EQ(permissionsOf(lockFile), 0600U);
}

TEST_F(RegistryReading, GivesTheRecordsInFileOrder) {
  writeFile(file, line(3) + line(1, Event::Remove) + line(2, Event::Update) + line(1, Event::Remove));
  const CapturedLog log;
  EXPECT_EQ(readAll(), line(3) + line(1, Event::Remove) + line(2, Event::Update) + line(1, Event::Remove) + "true");
  EXPECT_EQ(log.text(), "");
  EXPECT_FALSE(fs::exists(nextFile));
}

TEST_F(RegistryReading, GivesNothingForAnEmptyFile) {
  writeFile(file, "");
  EXPECT_EQ(readAll(), "true");
}

TEST_F(RegistryReading, ContinuesAfterABadLine) {
  writeFile(file, line(1) + "timestamp=2 event=I package=p\n" + line(3));
  const CapturedLog log;
  EXPECT_EQ(readAll(), line(1) + line(3) + "true");
  EXPECT_EQ(log.text(), "[W] Registry record doesn't contains key id\n"
                        "[W] Bad registry record found: 'timestamp=2 event=I package=p'\n");
}

TEST_F(RegistryReading, HandlesEachLineBeforeReadingTheNext) {
  writeFile(file, "bad\n" + line(1) + "worse\n" + "timestamp=2 event=I package=p keyid=k odd\n" + "worst");
  const CapturedLog log;
  EXPECT_TRUE(Registry().foreachRecord(
      [](const RegistryRecord& record) { LogMessage(LogLevel::Info) << "got " << record.timestamp; }));
  EXPECT_EQ(log.text(), "[W] Registry record contains unknown key: bad\n"
                        "[W] Registry record doesn't contains timestamp\n"
                        "[W] Bad registry record found: 'bad'\n"
                        "[I] got 1\n"
                        "[W] Registry record contains unknown key: worse\n"
                        "[W] Registry record doesn't contains timestamp\n"
                        "[W] Bad registry record found: 'worse'\n"
                        "[W] Registry record contains unknown key: odd\n"
                        "[I] got 2\n"
                        "[W] Registry record contains unknown key: worst\n"
                        "[W] Registry record doesn't contains timestamp\n"
                        "[W] Bad registry record found: 'worst'\n");
}

TEST_F(RegistryReading, SkipsEmptyLinesSilently) {
  writeFile(file, "\n\n" + line(1) + "\n\n\n" + line(2) + "\n");
  const CapturedLog log;
  EXPECT_EQ(readAll(), line(1) + line(2) + "true");
  EXPECT_EQ(log.text(), "");
}

TEST_F(RegistryReading, ReportsALineOfSpacesAsBad) {
  writeFile(file, "  \n");
  const CapturedLog log;
  EXPECT_EQ(readAll(), "true");
  EXPECT_EQ(log.text(), "[W] Registry record doesn't contains timestamp\n"
                        "[W] Bad registry record found: '  '\n");
}

TEST_F(RegistryReading, KeepsCarriageReturns) {
  writeFile(file, "timestamp=1 event=I package=p keyid=k\r\n\r\n");
  const CapturedLog log;
  EXPECT_EQ(readAll(), "timestamp=1 event=I package=p keyid=k\r\ntrue");
  EXPECT_EQ(log.text(), "[W] Registry record contains unknown key: \r\n"
                        "[W] Registry record doesn't contains timestamp\n"
                        "[W] Bad registry record found: '\r'\n");
}

TEST_F(RegistryReading, AcceptsALastLineWithoutALineEnd) {
  writeFile(file, line(1) + "timestamp=2 event=I package=p keyid=k");
  EXPECT_EQ(readAll(), line(1) + line(2) + "true");
}

TEST_F(RegistryReading, AcceptsLinesOfAMegabyte) {
  const std::string megabyte(1 << 20, 'x');
  const std::string longLine = "timestamp=1 event=I package=" + megabyte + " keyid=k prev-keyids=" + megabyte + "\n";
  writeFile(file, longLine + "event=" + megabyte + "\n" + line(2));
  const CapturedLog log;
  EXPECT_EQ(readAll(), longLine + line(2) + "true");
  EXPECT_EQ(log.text(), "[W] Registry record doesn't contains timestamp\n[W] Bad registry record found: 'event=" +
                            megabyte + "'\n");
}

TEST_F(RegistryReading, KeepsNullBytes) {
  const std::string text = line(1) + "timestamp=2 event=I package=p keyid=a\0b\n"s;
  writeFile(file, text);
  EXPECT_EQ(readAll(), text + "true");
}

TEST_F(RegistryReading, LooksUpTheRootAgainEachTime) {
  writeFile(file, line(1));
  const Support::TempDirectory other;
  EXPECT_EQ(readAll(), line(1) + "true");
  const Support::ScopedEnvironment otherRoot("KRV_ROOT_FS", other.path().string() + "/");
  EXPECT_EQ(readAll(), "true");
  EXPECT_TRUE(fs::exists(other / "var/lib/krv/registry.lock"));
}

TEST_F(RegistryReading, FollowsASymlinkToTheRegistry) {
  writeFile(root / "elsewhere", line(1));
  fs::create_directories(folder);
  fs::create_symlink(root / "elsewhere", file);
  EXPECT_EQ(readAll(), line(1) + "true");
}

// A file of size 0 may have content, and reading it may block forever.
TEST_F(RegistryReading, ReadsNothingFromAFileWithoutASize) {
  ASSERT_EQ(fs::file_size("/proc/version"), 0U);
  ASSERT_NE(readFile("/proc/version"), "");
  fs::create_directories(folder);
  fs::create_symlink("/proc/version", file);
  const CapturedLog log;
  EXPECT_EQ(readAll(), "true");
  EXPECT_EQ(log.text(), "");
}

TEST_F(RegistryReading, WaitsForALeaseOnTheRegistryAndOnTheLock) {
  writeFile(file, line(1));
  writeFile(lockFile, "");
  const Support::WriteLease registryLease(file);
  const Support::WriteLease lockLease(lockFile);
  if (!registryLease.isHeld() || !lockLease.isHeld())
    GTEST_SKIP() << "no leases on files in " << folder;
  EXPECT_EQ(readAll(), line(1) + "true");
  EXPECT_TRUE(registryLease.wasBroken());
  EXPECT_TRUE(lockLease.wasBroken());
}

TEST_F(RegistryReading, TreatsADanglingSymlinkAsAMissingRegistry) {
  fs::create_directories(folder);
  fs::create_symlink("missing", file);
  const CapturedLog log;
  EXPECT_EQ(readAll(), "true");
  EXPECT_EQ(log.text(), "");
}

TEST_F(RegistryReading, TreatsARegistryWhoseStatFailsAsMissing) {
  fs::create_directories(folder);
  fs::create_symlink("registry", file);
  const CapturedLog log;
  EXPECT_EQ(readAll(), "true");
  EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { return fs::exists(file); }) + "\n");
}

TEST_F(RegistryReading, FailsWhenTheRegistryIsNotARegularFile) {
  fs::create_directories(folder);
  for (const auto& make : std::vector<void (*)(const fs::path&)>{
           [](const fs::path& path) { fs::create_directory(path); }, Support::makeFifo, Support::makeSocket,
           [](const fs::path& path) { fs::create_symlink("/dev/zero", path); }}) {
    make(file);
    const CapturedLog log;
    EXPECT_EQ(readAll(), "false");
    EXPECT_EQ(log.text(), "[E] Couldn't open registry: " + quoted(file) + "\n");
    fs::remove(file);
  }
}

TEST_F(RegistryReading, FailsWithoutReadPermission) {
  writeFile(file, line(1));
  const Support::OrdinaryUser user(root.path());
  const Support::ScopedPermissions permissions(file, fs::perms::none);
  const CapturedLog log;
  EXPECT_EQ(readAll(), "false");
  EXPECT_EQ(log.text(), "[E] Couldn't open registry: " + quoted(file) + "\n");
}

TEST_F(RegistryReading, QuotesPathsInItsMessages) {
  const fs::path odd = root / "a \"b\\c";
  fs::create_directories(odd / "var/lib/krv/registry");
  const Support::ScopedEnvironment oddRoot("KRV_ROOT_FS", odd.string());
  const CapturedLog log;
  EXPECT_EQ(readAll(), "false");
  EXPECT_EQ(log.text(),
            "[E] Couldn't open registry: \"" + root.path().string() + "/a \\\"b\\\\c/var/lib/krv/registry\"\n");
}

TEST_F(RegistryReading, FailsWhenTheLockFileCannotBeCreated) {
  writeFile(file, line(1));
  for (const auto& make : std::vector<void (*)(const fs::path&)>{
           [](const fs::path& path) { fs::create_directory(path); }, Support::makeFifo, Support::makeSocket,
           [](const fs::path& path) { fs::create_symlink("missing/lock", path); }}) {
    make(lockFile);
    const CapturedLog log;
    EXPECT_EQ(readAll(), "false");
    EXPECT_FALSE(Registry().writeRecord(record(2)));
    const std::string expected = "[E] Couldn't create the registry lock file: " + quoted(lockFile) + "\n";
    EXPECT_EQ(log.text(), expected + expected);
    EXPECT_EQ(readFile(file), line(1));
    fs::remove(lockFile);
  }
}

TEST_F(RegistryReading, NeverFollowsASymlinkAsLockFile) {
  writeFile(file, line(1, Event::Remove));
  writeFile(root / "stranger", "kept");
  for (const fs::path& target : {file, fs::path("registry"), root / "stranger", root / "missing", fs::path("/dev/null"),
                                 fs::path("registry.lock")}) {
    fs::create_symlink(target, lockFile);
    const CapturedLog log;
    EXPECT_EQ(readAll(), "false");
    EXPECT_FALSE(Registry().writeRecord(record(2)));
    const std::string expected = "[E] Couldn't create the registry lock file: " + quoted(lockFile) + "\n";
    EXPECT_EQ(log.text(), expected + expected) << target;
    EXPECT_EQ(fs::read_symlink(lockFile), target);
    EXPECT_EQ(readFile(file), line(1, Event::Remove));
    EXPECT_EQ(readFile(root / "stranger"), "kept");
    EXPECT_FALSE(fs::exists(root / "missing"));
    fs::remove(lockFile);
  }
}

TEST_F(RegistryReading, ThrowsWhenTheFolderCannotBeCreated) {
  writeFile(root / "var/lib", "");
  const std::string reason = reasonOf([&] { fs::create_directories(folder); });
  const auto read = [] { return Registry().foreachRecord([](const RegistryRecord&) {}); };
  const auto write = [] { return Registry().writeRecord(record(1)); };
  const CapturedLog log;
  EXPECT_EQ(errorOf(read), "Filesystem: Couldn't create directory: " + folder.string());
  EXPECT_EQ(errorOf(write), "Filesystem: Couldn't create directory: " + folder.string());
  EXPECT_EQ(log.text(), "[E] " + reason + "\n[E] " + reason + "\n");
}

TEST_F(RegistryReading, HoldsTheLockWhileItCallsBack) {
  writeFile(file, line(1) + line(2));
  int held = 0;
  EXPECT_TRUE(Registry().foreachRecord([&](const RegistryRecord&) { held += holdsALock(getpid()) ? 1 : 0; }));
  EXPECT_EQ(held, 2);
  EXPECT_FALSE(holdsALock(getpid()));
}

TEST_F(RegistryReading, PassesOnTheExceptionOfTheCallbackAndReleasesTheLock) {
  writeFile(file, line(1) + line(2));
  const CapturedLog log;
  EXPECT_THROW(
      static_cast<void>(Registry().foreachRecord([](const RegistryRecord&) { throw std::length_error("mine"); })),
      std::length_error);
  EXPECT_THROW(static_cast<void>(Registry().foreachRecord([](const RegistryRecord&) { throw 42; })), int);
  EXPECT_EQ(log.text(), "");
  EXPECT_FALSE(holdsALock(getpid()));
}

TEST_F(RegistryWriting, AppliesTheUmaskToTheRegistry) {
  const ScopedUmask mask(0027);
  const CapturedLog log;
  EXPECT_TRUE(Registry().writeRecord({Event::Update, -5, "p", "k3", {"k1", "k2"}}));
  EXPECT_EQ(readFile(file), "timestamp=-5 event=U package=p keyid=k3 prev-keyids=k1->k2\n");
  EXPECT_EQ(permissionsOf(file), 0640U);
  EXPECT_TRUE(fs::exists(lockFile));
  EXPECT_FALSE(fs::exists(nextFile));
  EXPECT_EQ(log.text(), "");
  EXPECT_FALSE(holdsALock(getpid()));
}

TEST_F(RegistryWriting, DropsBadLines) {
  writeFile(file, "bad\n\ntimestamp=+07  event=I package=q keyid=k odd");
  const CapturedLog log;
  EXPECT_TRUE(Registry().writeRecord(record(2)));
  EXPECT_EQ(readFile(file), "timestamp=7 event=I package=q keyid=k\n" + line(2));
  EXPECT_EQ(log.text(), "[W] Registry record contains unknown key: bad\n"
                        "[W] Registry record doesn't contains timestamp\n"
                        "[W] Bad registry record found: 'bad'\n"
                        "[W] Registry record contains unknown key: odd\n");
}

TEST_F(RegistryWriting, OverwritesAStaleNextFile) {
  writeFile(nextFile, std::string(10'000, 'x'));
  EXPECT_TRUE(Registry().writeRecord(record(1)));
  EXPECT_EQ(readFile(file), line(1));
  EXPECT_FALSE(fs::exists(nextFile));
}

TEST_F(RegistryWriting, ReplacesASymlinkToTheRegistryByAFile) {
  writeFile(root / "elsewhere", line(1));
  fs::create_directories(folder);
  fs::create_symlink(root / "elsewhere", file);
  EXPECT_TRUE(Registry().writeRecord({Event::Install, 2, "q", "k", {}}));
  EXPECT_EQ(readFile(file), line(1) + "timestamp=2 event=I package=q keyid=k\n");
  EXPECT_FALSE(fs::is_symlink(file));
  EXPECT_EQ(readFile(root / "elsewhere"), line(1));
}

TEST_F(RegistryWriting, ChecksTheEventBeforeItWritesAnything) {
  writeFile(file, line(1));
  EXPECT_THROW(static_cast<void>(Registry().writeRecord(record(2, static_cast<Event>(3)))), std::out_of_range);
  EXPECT_EQ(readFile(file), line(1));
  EXPECT_FALSE(fs::exists(nextFile));
  EXPECT_FALSE(fs::exists(lockFile));
}

TEST_F(RegistryWriting, FailsWhenTheRegistryCannotBeLoaded) {
  writeFile(file / "content", "");
  const CapturedLog log;
  EXPECT_FALSE(Registry().writeRecord(record(1)));
  EXPECT_EQ(log.text(), "[E] Couldn't open registry: " + quoted(file) + "\n[E] Couldn't load registry records\n");
  EXPECT_TRUE(fs::exists(file / "content"));
  EXPECT_FALSE(fs::exists(nextFile));
}

TEST_F(RegistryWriting, FailsWhenStatOfTheRegistryFails) {
  fs::create_directories(folder);
  fs::create_symlink("registry", file);
  const CapturedLog log;
  EXPECT_FALSE(Registry().writeRecord(record(2)));
  EXPECT_EQ(log.text(), "[E] " + reasonOf([&] { return fs::exists(file); }) +
                            "\n[E] Couldn't open registry: " + quoted(file) + "\n[E] Couldn't load registry records\n");
  EXPECT_TRUE(fs::is_symlink(file));
}

TEST_F(RegistryWriting, FailsWhenADirectoryIsInTheWay) {
  fs::create_directories(nextFile);
  expectFailure("[E] Couldn't write records to the next registry: " + quoted(nextFile) + "\n");
}

TEST_F(RegistryWriting, FailsWhenAFifoIsInTheWay) {
  fs::create_directories(folder);
  Support::makeFifo(nextFile);
  expectFailure("[E] Couldn't write records to the next registry: " + quoted(nextFile) + "\n");
}

TEST_F(RegistryWriting, FailsOnAFullDevice) {
  fs::create_directories(folder);
  fs::create_symlink("/dev/full", nextFile);
  expectFailure("[E] Couldn't write records to the next registry: " + quoted(nextFile) + "\n");
}

TEST_F(RegistryWriting, FailsWithoutWritePermissionForTheFolder) {
  writeFile(lockFile, "");
  writeFile(file, "");
  const Support::OrdinaryUser user(root.path());
  writeFile(file, line(1));
  const Support::ScopedPermissions permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
  expectFailure("[E] Couldn't write records to the next registry: " + quoted(nextFile) + "\n");
}

TEST_F(RegistryWriting, FailsAtTheFileSizeLimit) {
  std::string before;
  for (int i = 0; i < 100; ++i)
    before += "timestamp=1 event=I package=other keyid=k\n";
  writeFile(file, before);
  const ScopedFileSizeLimit limit(before.size());
  const CapturedLog log;
  EXPECT_FALSE(Registry().writeRecord(record(2)));
  EXPECT_EQ(log.text(), "[E] Couldn't write records to the next registry: " + quoted(nextFile) + "\n");
  EXPECT_EQ(readFile(file), before);
}

/// The old records, the added record, and the old records that stay. A record is written "package/event/key" or
/// "package/event/key/earlier keys"; its index is its timestamp.
struct Pruning {
  std::vector<std::string> before;
  std::string added;
  std::vector<std::size_t> kept;
};

std::string lineOf(std::size_t timestamp, const std::string& text) {
  std::istringstream stream(text);
  std::string package, event, key, earlier;
  std::getline(stream, package, '/');
  std::getline(stream, event, '/');
  std::getline(stream, key, '/');
  std::getline(stream, earlier);
  return "timestamp=" + std::to_string(timestamp) + " event=" + event + " package=" + package + " keyid=" + key +
         (earlier.empty() ? "" : " prev-keyids=" + earlier) + "\n";
}

class RegistryPruning : public RegistrySandbox {
protected:
  void expectAll(const std::vector<Pruning>& cases) {
    for (const Pruning& each : cases) {
      std::string before, after;
      for (std::size_t i = 0; i < each.before.size(); ++i) {
        before += lineOf(i, each.before[i]);
        if (std::ranges::find(each.kept, i) != each.kept.end())
          after += lineOf(i, each.before[i]);
      }
      const std::string added = lineOf(each.before.size(), each.added);
      writeFile(file, before);
      const CapturedLog log;
      EXPECT_TRUE(
          Registry().writeRecord(Core::KRV::parseRecord(std::string_view(added).substr(0, added.size() - 1)).value()));
      EXPECT_EQ(readFile(file), after + added) << "before:\n" << before;
      EXPECT_EQ(log.text(), "");
    }
  }
};

TEST_F(RegistryPruning, InstallationsAndRemovalsReplaceTheHistory) {
  expectAll({
      {{}, "p/I/k1", {}},
      {{"p/I/k1", "p/U/k1", "p/R/k1"}, "p/I/k1", {}},
      {{"p/I/k1", "p/U/k1", "p/R/k1"}, "p/R/k1", {}},
      {{"p/I/k1", "q/I/k1", "p/U/k2"}, "p/R/k3/k1->k2", {1}},
      {{"p/I/k1", "q/I/k1", "p/U/k2"}, "p/I/k3/k1->k2", {1}},
  });
}

TEST_F(RegistryPruning, UpdatesKeepInstallations) {
  expectAll({
      {{}, "p/U/k1", {}},
      {{"p/I/k1", "p/U/k1"}, "p/U/k2/k1", {0}},
      {{"p/I/k1", "p/U/k1", "p/R/k1", "p/I/k1"}, "p/U/k1", {0, 3}},
      {{"p/R/k1"}, "p/U/k1", {}},
  });
}

TEST_F(RegistryPruning, KeepsOtherPackagesAndUnrelatedKeys) {
  expectAll({
      {{"p/I/k1"}, "p/R/k9", {0}},
      {{"p/I/k1", "p/U/k1", "p/R/k1"}, "p/U/k9", {0, 1, 2}},
      {{"P/I/k1", "pp/I/k1", "p1/R/k1", "q/U/k1"}, "p/R/k1", {0, 1, 2, 3}},
      {{"p/I/K1", "p/I/k", "p/I/k11"}, "p/R/k1", {0, 1, 2}},
      {{"q/I/k1", "p/I/k1", "r/U/k1", "p/U/k1", "s/R/k1"}, "p/R/k1", {0, 2, 4}},
  });
}

TEST_F(RegistryPruning, FollowsTheKeyChainFromTheNewestToTheOldest) {
  expectAll({
      {{"p/I/k1", "p/U/k2/k1"}, "p/R/k3/k2", {}},
      {{"p/I/k1", "p/U/k2/k1", "p/U/k3/k2", "p/U/k4/k3"}, "p/R/k4", {}},
      {{"p/I/k1", "p/U/k2", "p/U/k3/k1->k2"}, "p/R/k3", {}},
      // The record that names k1 as an earlier key is older than the record signed with k1.
      {{"p/U/k2/k1", "p/I/k1"}, "p/R/k3/k2", {1}},
      // Only the earlier keys of the new record count, not keys that have it as their earlier key.
      {{"p/I/k3"}, "p/R/k2/k1", {0}},
  });
}

TEST_F(RegistryPruning, FollowsTheKeyChainThroughInstallationsThatStay) {
  expectAll({
      {{"p/U/k1", "p/I/k2/k1"}, "p/U/k2", {1}},
      {{"p/R/k1", "p/I/k2/k1", "p/I/k3/k2"}, "p/U/k3", {1, 2}},
  });
}

TEST_F(RegistryPruning, IgnoresUnrelatedKeyChains) {
  expectAll({
      {{"p/I/k1", "q/U/k2/k1"}, "p/R/k2", {0, 1}},
      {{"p/I/k1", "p/U/k5/k1"}, "p/R/k2", {0, 1}},
      {{"p/I/k2", "p/U/k1/k2"}, "p/R/k3/k2", {1}},
  });
}

} // namespace
