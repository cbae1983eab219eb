// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "driver/preinstall_package.h"
#include "tests/driver/device.h"
#include "tests/support/diagnostics/expected_errors.h"
#include "tests/support/packages/package_surgery.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/preload.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>
#include <rpm/rpmtag.h>

#include <filesystem>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Support::getPackageCall;
using Support::installCall;
using Support::PackageInput;
using Support::writeFile;

class Preinstall : public testing::Test {
protected:
  std::string keyId(const std::string& developer) { return Support::Pki::instance().keyId(developer); }

  std::string removal(const std::string& package, const std::string& keys) {
    return "timestamp=1700000000 event=R package=" + package + " keyid=" + keys + "\n";
  }

  Device m_device;
};

const std::string comparisonLine =
    "[W] Failed to compare the package version with the version of an already installed package: ";
const std::string notNewerLine =
    "[E] The package version is lower than or equal to the version of an already installed package: ";
const std::string otherDeveloperLine =
    "[E] Package developer doesn't match with the developer of an already installed package: ";
const std::string removedLine = "[I] The package was manually removed by the user: ";

// Not installed

TEST_F(Preinstall, InstallsANewPackage) {
  const fs::path path = m_device.add({});
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
  EXPECT_EQ(m_device.service().calls(), (std::vector{getPackageCall("sample"), installCall(path)}));
}

TEST_F(Preinstall, AsksForTheNameInTheHeaderNotTheFileName) {
  const fs::path path = m_device.add({.name = "inner"}, "alice", {}, "outer");
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
  EXPECT_EQ(m_device.service().calls(), (std::vector{getPackageCall("inner"), installCall(path)}));
}

TEST_F(Preinstall, HonoursARemovalUnderTheSameKey) {
  const fs::path path = m_device.add({});
  writeFile(m_device.registry(), removal("sample", keyId("alice")));
  EXPECT_EQ(m_device.run().log, removedLine + quoted(path) + "\n" + skippedLine(path) + timeLine);
  EXPECT_EQ(m_device.service().calls(), (std::vector{getPackageCall("sample")}));
}

TEST_F(Preinstall, HonoursARemovalWithTheKeyInItsChain) {
  const fs::path path = m_device.add({});
  writeFile(m_device.registry(),
            removal("sample", keyId("alice-2") + " prev-keyids=" + keyId("bob") + "->" + keyId("alice")));
  EXPECT_EQ(m_device.run().log, removedLine + quoted(path) + "\n" + skippedLine(path) + timeLine);
}

TEST_F(Preinstall, InstallsDespiteARemovalUnderOtherKeys) {
  const fs::path path = m_device.add({});
  writeFile(m_device.registry(), removal("sample", keyId("bob") + " prev-keyids=" + keyId("alice-2")));
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
}

TEST_F(Preinstall, InstallsDespiteARemovalUnderAnEarlierKeyOfTheFile) {
  const fs::path path = m_device.add({}, "alice-2", {"alice"});
  writeFile(m_device.registry(), removal("sample", keyId("alice")));
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
}

TEST_F(Preinstall, InstallsWhenTheRegistryHasOnlyOtherEventsAndNames) {
  const fs::path path = m_device.add({});
  writeFile(m_device.registry(), "timestamp=1 event=I package=sample keyid=" + keyId("alice") +
                                     "\ntimestamp=2 event=U package=sample keyid=" + keyId("alice") + "\n" +
                                     removal("sample-app", keyId("alice")) + removal("sampl", keyId("alice")));
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
}

TEST_F(Preinstall, DoesNotChangeTheRegistry) {
  m_device.add({});
  const std::string content = removal("other", "k") + "\nbad line\r\n" + removal("last", "without newline");
  writeFile(m_device.registry(), content);
  m_device.run();
  EXPECT_EQ(Support::readFile(m_device.registry()), content);
  EXPECT_EQ(Support::readFile(m_device.root() / "var/lib/krv/registry.lock"), "");
  EXPECT_FALSE(fs::exists(m_device.root() / "var/lib/krv/registry.next"));
}

TEST_F(Preinstall, ReportsBadRecordsOnceAndUsesTheOthers) {
  m_device.add({.name = "a"});
  m_device.add({.name = "b"});
  writeFile(m_device.registry(), "timestamp=1 event=R package=a\n" + removal("a", keyId("alice")) +
                                     removal("b", keyId("alice") + " more=x"));
  std::string expected = "[W] Registry record doesn't contains key id\n"
                         "[W] Bad registry record found: 'timestamp=1 event=R package=a'\n"
                         "[W] Registry record contains unknown key: more=x\n";
  for (const fs::path& path : m_device.entries())
    expected += removedLine + quoted(path) + "\n" + skippedLine(path);
  EXPECT_EQ(m_device.run().log, expected + timeLine);
}

TEST_F(Preinstall, InstallsWhenTheRegistryCannotBeRead) {
  const fs::path path = m_device.add({});
  fs::create_directories(m_device.registry());
  EXPECT_EQ(m_device.run().log, "[E] Couldn't open registry: " + quoted(m_device.registry()) +
                                    "\n[E] Failed to read records from krv registry\n" + installedLine(path) +
                                    timeLine);
}

TEST_F(Preinstall, InstallsWhenTheRegistryCannotBeLocked) {
  const fs::path path = m_device.add({});
  const fs::path lock = m_device.root() / "var/lib/krv/registry.lock";
  fs::create_directories(lock);
  EXPECT_EQ(m_device.run().log, "[E] Couldn't create the registry lock file: " + quoted(lock) +
                                    "\n[E] Failed to read records from krv registry\n" + installedLine(path) +
                                    timeLine);
}

TEST_F(Preinstall, TriesAnUnreadableRegistryAgainForTheNextPackage) {
  m_device.add({.name = "a"});
  m_device.add({.name = "b"});
  const std::vector<fs::path> paths = m_device.entries();
  fs::create_directories(m_device.registry());
  m_device.service().onInstall(paths[0]).whenReleased().succeed();
  const auto tool = m_device.start();
  ASSERT_TRUE(m_device.service().waitForCalls(2));
  fs::remove(m_device.registry());
  writeFile(m_device.registry(), removal(paths[1].stem(), keyId("alice")));
  m_device.service().release();
  EXPECT_EQ(m_device.finish(*tool).log, "[E] Couldn't open registry: " + quoted(m_device.registry()) +
                                            "\n[E] Failed to read records from krv registry\n" +
                                            installedLine(paths[0]) + removedLine + quoted(paths[1]) + "\n" +
                                            skippedLine(paths[1]) + timeLine);
}

TEST_F(Preinstall, NeverReadsTheRegistryAgainAfterASuccess) {
  m_device.add({.name = "a"});
  m_device.add({.name = "b"});
  const std::vector<fs::path> paths = m_device.entries();
  m_device.service().onInstall(paths[0]).whenReleased().succeed();
  const auto tool = m_device.start();
  ASSERT_TRUE(m_device.service().waitForCalls(2));
  writeFile(m_device.registry(), removal(paths[1].stem(), keyId("alice")));
  m_device.service().release();
  // The first read found no registry, which is a success.
  EXPECT_EQ(m_device.finish(*tool).log, installedLine(paths[0]) + installedLine(paths[1]) + timeLine);
}

// The registry cache of a caller in the same process

static_assert(std::is_same_v<RegistryCache, std::optional<std::vector<Core::KRV::RegistryRecord>>>);

class PreinstallCache : public Preinstall {
protected:
  using Event = Core::KRV::RegistryRecord::Event;

  PreinstallOutcome preinstall(const fs::path& path) { return preinstallPackage(*m_proxy, path, m_cache); }

  Support::ScopedEnvironment m_root{"KRV_ROOT_FS", m_device.root().string()};
  std::optional<KrvProxy> m_proxy = KrvProxy::create();
  RegistryCache m_cache;
};

TEST_F(PreinstallCache, HoldsTheRemovalsInFileOrder) {
  const fs::path path = m_device.add({});
  writeFile(m_device.registry(), "timestamp=5 event=R package=b keyid=k2 prev-keyids=k1\n"
                                 "timestamp=1 event=I package=sample keyid=k\n"
                                 "timestamp=4 event=R package=a keyid=k\n"
                                 "timestamp=2 event=U package=sample keyid=k\n"
                                 "timestamp=3 event=R package=b keyid=k1\n");
  EXPECT_EQ(preinstall(path), PreinstallOutcome::Installed);
  EXPECT_EQ(m_cache, (std::vector<Core::KRV::RegistryRecord>{{Event::Remove, 5, "b", "k2", {"k1"}},
                                                             {Event::Remove, 4, "a", "k", {}},
                                                             {Event::Remove, 3, "b", "k1", {}}}));
}

TEST_F(PreinstallCache, IsFilledByAnEmptyRegistry) {
  EXPECT_EQ(preinstall(m_device.add({})), PreinstallOutcome::Installed);
  EXPECT_EQ(m_cache, std::vector<Core::KRV::RegistryRecord>());
}

TEST_F(PreinstallCache, OnlyRemovalsDecide) {
  const fs::path path = m_device.add({});
  writeFile(m_device.registry(), removal("sample", keyId("alice")));
  m_cache = {{Event::Install, 1, "sample", keyId("alice"), {}},
             {Event::Remove, 2, "sample", keyId("bob"), {}},
             {Event::Update, 3, "sample", keyId("alice"), {}},
             {Event::Remove, 4, "simple", keyId("alice"), {}}};
  EXPECT_EQ(preinstall(path), PreinstallOutcome::Installed);
  m_cache->push_back({Event::Remove, 5, "sample", keyId("bob"), {"other", keyId("alice")}});
  m_cache->push_back({Event::Install, 6, "sample", keyId("alice"), {}});
  EXPECT_EQ(preinstall(path), PreinstallOutcome::Skipped);
}

// Installed

struct Update {
  const char* version;
  const char* release;
  const char* installedVersion;
  const char* installedDeveloper;
  const char* refusal; ///< the log line without its path; null if it is installed
};

class PreinstallUpdate : public Preinstall, public testing::WithParamInterface<Update> {};

TEST_P(PreinstallUpdate, FollowsTheVersionAndTheDeveloper) {
  const Update& update = GetParam();
  const fs::path path = m_device.add({.version = update.version, .release = update.release, .preamble = "Epoch: 9"},
                                     "alice-3", {"alice", "alice-2"});
  m_device.service().hasInstalled("sample", update.installedVersion, keyId(update.installedDeveloper));
  const std::string expected =
      update.refusal ? update.refusal + quoted(path) + "\n" + skippedLine(path) : installedLine(path);
  EXPECT_EQ(m_device.run().log, expected + timeLine);
  EXPECT_EQ(m_device.service().calls().size(), update.refusal ? 1U : 2U);
  EXPECT_FALSE(fs::exists(m_device.root() / "var")) << "the registry plays no part for an installed package";
}

INSTANTIATE_TEST_SUITE_P(Table, PreinstallUpdate,
                         testing::Values(Update{"1.0", "2", "1.0-1", "alice-3", nullptr},
                                         Update{"1.0", "2", "1.0-1", "alice-2", nullptr},
                                         Update{"1.10", "1", "1.9-7", "alice", nullptr},
                                         Update{"1.0", "2", "1.0-1", "bob", otherDeveloperLine.c_str()},
                                         Update{"1.0", "1", "1.0-1", "alice-3", notNewerLine.c_str()},
                                         Update{"1.0", "1", "1.0-2", "alice-3", notNewerLine.c_str()},
                                         Update{"1.0", "1", "1.0-2", "bob", notNewerLine.c_str()},
                                         // The file's epoch is ignored; the installed version is compared as it is.
                                         Update{"1.0", "1", "2.0-1", "alice-3", notNewerLine.c_str()},
                                         Update{"3.0", "1", "1:2.0-1", "alice-3", notNewerLine.c_str()}));

TEST_F(Preinstall, UpdatesOverAVersionThatCannotBeParsed) {
  const fs::path path = m_device.add({});
  m_device.service().hasInstalled("sample", "", keyId("alice"));
  EXPECT_EQ(m_device.run().log, "[E] Failed to parse rpm package version: 1.0-1\n" + comparisonLine + quoted(path) +
                                    "\n" + installedLine(path) + timeLine);
}

TEST_F(Preinstall, ChecksTheDeveloperWhenTheVersionCannotBeParsed) {
  const fs::path path = m_device.add({});
  m_device.service().hasInstalled("sample", "", keyId("bob"));
  EXPECT_EQ(m_device.run().log, "[E] Failed to parse rpm package version: 1.0-1\n" + comparisonLine + quoted(path) +
                                    "\n" + otherDeveloperLine + quoted(path) + "\n" + skippedLine(path) + timeLine);
}

TEST_F(Preinstall, UpdatesWhenTheComparisonIsOdd) {
  const fs::path path = m_device.add({});
  m_device.service().hasInstalled("sample", "1.0-1", keyId("alice"));
  EXPECT_EQ(m_device.run(Support::preloading(KRV_ODD_COMPARISON)).log,
            "[E] Unexpected result of comparing rpm versions\n" + comparisonLine + quoted(path) + "\n" +
                installedLine(path) + timeLine);
}

// The service's answers

TEST_F(Preinstall, TreatsAnIncompleteAnswerAsNotInstalled) {
  const fs::path path = m_device.add({});
  m_device.service().onGetPackage().answer({{"certificate.id", keyId("bob")}});
  EXPECT_EQ(m_device.run().log, "[E] Failed to determinate package version: sample\n" + installedLine(path) + timeLine);
  m_device.service().onGetPackage().answer({{"general.version", "9-9"}});
  EXPECT_EQ(m_device.run().log,
            "[E] Failed to determinate package developer key id: sample\n" + installedLine(path) + timeLine);
}

TEST_F(Preinstall, TreatsAFailedQueryAsNotInstalledAndReadsTheRegistry) {
  const fs::path path = m_device.add({});
  writeFile(m_device.registry(), removal("sample", keyId("alice")));
  m_device.service().onGetPackage().fail("velta.KRV.Error.CorruptedInstalledPackage", "Broken");
  EXPECT_EQ(m_device.run().log, "[E] Broken\n[E] Failed to query information about installed package: sample\n" +
                                    removedLine + quoted(path) + "\n" + skippedLine(path) + timeLine);
}

TEST_F(Preinstall, TreatsAnAnswerOfTheWrongTypeAsNotInstalled) {
  const fs::path path = m_device.add({});
  m_device.service().onGetPackage().answerAs("s", "1.0-1");
  EXPECT_EQ(m_device.run().log, "[E] Failed to enter a container (No such device or address)\n"
                                "[E] Failed to query information about installed package: sample\n" +
                                    installedLine(path) + timeLine);
}

TEST_F(Preinstall, TakesTheFirstOfRepeatedKeys) {
  const fs::path path = m_device.add({});
  m_device.service().onGetPackage().answer({{"certificate.id", keyId("alice")},
                                            {"general.version", "0.9-1"},
                                            {"general.version", "9.9-1"},
                                            {"certificate.id", keyId("bob")},
                                            {"general.name", "whatever"}});
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
}

TEST_F(Preinstall, TreatsEveryErrorOfAQueryAsNotInstalled) {
  const fs::path path = m_device.add({});
  for (const auto& expected : Support::expectedErrors) {
    m_device.service().onGetPackage().fail(expected.dbusName, expected.message);
    const std::string report = expected.code == Common::ErrorCode::PackageNotExist
                                   ? ""
                                   : std::string("[E] ") + expected.message +
                                         "\n[E] Failed to query information about installed package: sample\n";
    EXPECT_EQ(m_device.run().log, report + installedLine(path) + timeLine);
  }
  m_device.service().onGetPackage().fail("org.freedesktop.DBus.Error.UnknownMethod", "No such thing");
  EXPECT_EQ(m_device.run().log, "[E] No such thing\n"
                                "[E] Failed to query information about installed package: sample\n" +
                                    installedLine(path) + timeLine);
}

TEST_F(Preinstall, ReportsEveryErrorOfAnInstallation) {
  const fs::path path = m_device.add({});
  for (const auto& expected : Support::expectedErrors) {
    m_device.service().onInstall().fail(expected.dbusName, expected.message);
    const auto run = m_device.run();
    EXPECT_EQ(run.log,
              std::string("[E] Package installation error: ") + expected.message + "\n" + failedLine(path) + timeLine);
    EXPECT_EQ(run.status, 0);
  }
}

// Signatures

TEST_F(Preinstall, SkipsAnUnsignedPackage) {
  const fs::path path = m_device.add({}, "");
  EXPECT_EQ(m_device.run().log, unreadableLines("Package doesn't have developer signature", path) + timeLine);
  EXPECT_TRUE(m_device.service().calls().empty());
}

TEST_F(Preinstall, SkipsAPackageSignedOnlyByASource) {
  const fs::path path = m_device.add({}, "source");
  EXPECT_EQ(m_device.run().log, unreadableLines("Package doesn't have developer signature", path) + timeLine);
}

TEST_F(Preinstall, DoesNotVerifyTheSignature) {
  const fs::path path = m_device.add({}, "foreign");
  std::string bytes = Support::readFile(path);
  bytes.back() = static_cast<char>(~bytes.back());
  writeFile(path, bytes);
  EXPECT_EQ(m_device.run().log, installedLine(path) + timeLine);
}

TEST_F(Preinstall, SkipsAPackageWithMalformedSignatures) {
  const fs::path path = m_device.add({}, "");
  PackageSignatures::replaceContainer(path, "no CMS");
  EXPECT_EQ(m_device.run().log,
            unreadableLines("Couldn't open RPM package for reading cmses: " + path.string(), path) + timeLine);
}

TEST_F(Preinstall, SkipsAPackageWithoutARelease) {
  const fs::path path = m_device.add({}, "");
  Support::hideTag(path, RPMTAG_RELEASE);
  Support::sign(path, "alice");
  EXPECT_EQ(m_device.run().log, unreadableLines("Couldn't retrieve rpm tag from package (type=1002)", path) + timeLine);
}

TEST_F(Preinstall, ReportsAMissingVersionBeforeAMissingRelease) {
  const fs::path path = m_device.add({}, "");
  Support::hideTag(path, RPMTAG_VERSION);
  Support::hideTag(path, RPMTAG_RELEASE);
  Support::sign(path, "alice");
  EXPECT_EQ(m_device.run().log, unreadableLines("Couldn't retrieve rpm tag from package (type=1001)", path) + timeLine);
}

TEST_F(Preinstall, SkipsAPackageWithATranslatedName) {
  const fs::path path = m_device.add({}, "");
  Support::changeHeader(path, [](Header header) {
    headerDel(header, RPMTAG_NAME);
    headerAddI18NString(header, RPMTAG_NAME, "sample", "C");
    headerAddI18NString(header, RPMTAG_NAME, "beispiel", "de");
  });
  Support::sign(path, "alice");
  EXPECT_EQ(m_device.run().log, unreadableLines("Couldn't retrieve rpm tag from package (type=1000)", path) + timeLine);
}

TEST_F(Preinstall, SkipsAPackageWithoutAName) {
  const fs::path path = m_device.add({}, "");
  Support::hideTag(path, RPMTAG_NAME);
  Support::sign(path, "alice");
  const std::string log = m_device.run().log;
  EXPECT_EQ(log, unreadableLines("Couldn't retrieve rpm tag from package (type=1000)", path) + timeLine);
}

} // namespace
