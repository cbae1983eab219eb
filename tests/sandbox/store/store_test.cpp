// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/store/store_fixture.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;
using StoreTest::Fixture;
using Support::errorOf;
using testing::ElementsAre;
using testing::IsEmpty;

class Store : public Fixture {};

const Support::PackageInput mixed = {
    .install = "cd %{buildroot}; mkdir -p opt/app/folder; cd opt/app\n"
               "echo first >folder/first; echo second >second; : >empty; echo shared >one; ln one two\n"
               "ln -s folder/first link; ln -s /nowhere dangling\n"
               "chmod 640 second; chmod 4755 empty; chmod 2750 folder; chmod 600 one",
    .files = "/opt/app"};

TEST_F(Store, InstallsAllFiles) {
  install(mixed);
  EXPECT_EQ(tree(), "opt 755 directory\n"
                    "opt/app 755 directory\n"
                    "opt/app/dangling -> /nowhere\n"
                    "opt/app/empty 755 \"\"\n"
                    "opt/app/folder 750 directory\n"
                    "opt/app/folder/first 644 \"first\n\"\n"
                    "opt/app/link -> folder/first\n"
                    "opt/app/one 600 \"shared\n\"\n"
                    "opt/app/second 640 \"second\n\"\n"
                    "opt/app/two 600 is also one\n");
  EXPECT_THAT(database(), ElementsAre("sample-1.0-1.noarch"));
  EXPECT_EQ(registry(), "event=I package=sample keyid=" + Support::Pki::instance().keyId("alice") + "\n");
}

TEST_F(Store, UpdatesChangedFilesAndRemovesObsoleteOnes) {
  install(mixed);
  install({.version = "2.0",
           .install = "cd %{buildroot}; mkdir -p opt/app/new; cd opt/app\n"
                      "echo changed >second; echo first >new/first; echo shared >two; ln two three; ln -s new link\n"
                      "chmod 600 second; chmod 700 .",
           .files = "/opt/app"});
  EXPECT_EQ(tree(), "opt 755 directory\n"
                    "opt/app 700 directory\n"
                    "opt/app/link -> new\n"
                    "opt/app/new 755 directory\n"
                    "opt/app/new/first 644 \"first\n\"\n"
                    "opt/app/second 600 \"changed\n\"\n"
                    "opt/app/three 644 \"shared\n\"\n"
                    "opt/app/two 644 is also three\n");
  EXPECT_THAT(database(), ElementsAre("sample-2.0-1.noarch"));
  const std::string key = Support::Pki::instance().keyId("alice");
  EXPECT_EQ(registry(), "event=I package=sample keyid=" + key + "\nevent=U package=sample keyid=" + key + "\n");
}

TEST_F(Store, UpdatesToANewKeyOfTheDeveloper) {
  install({});
  install({.version = "2.0"}, {.developer = "alice-2", .previous = {"alice"}});
  const Support::Pki& pki = Support::Pki::instance();
  EXPECT_EQ(registry(), "event=I package=sample keyid=" + pki.keyId("alice") + "\nevent=U package=sample keyid=" +
                            pki.keyId("alice-2") + " prev-keyids=" + pki.keyId("alice") + "\n");
}

TEST_F(Store, RemovesAllOwnFiles) {
  fs::create_directories(root() / "opt/app/folder");
  install(mixed);
  Support::writeFile(root() / "opt/app/folder/of-the-user", "mine");
  store().remove("sample");
  EXPECT_EQ(tree(), "opt 755 directory\n"
                    "opt/app 755 directory\n"
                    "opt/app/folder 755 directory\n"
                    "opt/app/folder/of-the-user 644 \"mine\"\n");
  EXPECT_THAT(database(), IsEmpty());
  EXPECT_EQ(registry(), "event=R package=sample keyid=" + Support::Pki::instance().keyId("alice") + "\n");
}

TEST_F(Store, RemovesItsDirectoriesAndNotTheirParents) {
  install(mixed);
  store().remove("sample");
  EXPECT_EQ(tree(), "opt 755 directory\n");
}

TEST_F(Store, KeepsEntriesWhoseTypeHasChanged) {
  fs::create_directory(m_rpm.path() / "outside");
  Support::writeFile(m_rpm.path() / "outside/first", "mine");
  install(mixed);
  fs::remove(root() / "opt/app/second");
  fs::create_directory(root() / "opt/app/second");
  fs::remove_all(root() / "opt/app/folder");
  fs::create_directory_symlink(m_rpm.path() / "outside", root() / "opt/app/folder");
  store().remove("sample");
  EXPECT_EQ(tree(), "opt 755 directory\n"
                    "opt/app 755 directory\n"
                    "opt/app/folder -> " +
                        (m_rpm.path() / "outside").string() + "\nopt/app/second 755 directory\n");
  EXPECT_EQ(Support::readFile(m_rpm.path() / "outside/first"), "mine");
}

TEST_F(Store, ReinstallsARemovedPackage) {
  install(mixed);
  const std::string before = tree();
  store().remove("sample");
  install(mixed);
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(registry(), "event=I package=sample keyid=" + Support::Pki::instance().keyId("alice") + "\n");
}

TEST_F(Store, RestoresAFileThatTheUserRemovedWithTheNextVersion) {
  install({});
  fs::remove_all(root() / "opt");
  install({.version = "2.0"});
  EXPECT_EQ(tree(), "opt 755 directory\nopt/sample 755 directory\nopt/sample/file 644 \"content\n\"\n");
}

TEST_F(Store, InstallsAPackageWithoutFiles) {
  install({.install = "", .files = ""});
  EXPECT_EQ(tree(), "");
  EXPECT_THAT(database(), ElementsAre("sample-1.0-1.noarch"));
  store().remove("sample");
  EXPECT_THAT(database(), IsEmpty());
}

TEST_F(Store, InstallsAPackageThatListsTheRootItself) {
  install({.install = "", .files = "%dir %attr(700, root, root) /"});
  EXPECT_EQ(tree(), "");
  EXPECT_NE(fs::status(root()).permissions(), fs::perms::owner_all);
}

TEST_F(Store, SkipsDevices) {
  const Support::CapturedLog log;
  install({.install = "mkdir %{buildroot}/opt; touch %{buildroot}/opt/file",
           .files = "/opt/file\n%dev(c, 1, 3) /opt/null"});
  EXPECT_EQ(tree(), "opt 755 directory\nopt/file 644 \"\"\n");
  EXPECT_EQ(log.text(), "[W] Unexpected entry type in rpm package\n[I] Installed: sample 1.0-1\n");
}

TEST_F(Store, CreatesNoGhostsButRemovesThem) {
  install({.install = "", .files = "%ghost /opt/log"});
  EXPECT_EQ(tree(), "opt 755 directory\n");
  Support::writeFile(root() / "opt/log", "written at run time");
  store().remove("sample");
  EXPECT_EQ(tree(), "opt 755 directory\n");
}

TEST_F(Store, KeepsGhostsThroughAnUpdate) {
  install({.install = "", .files = "%ghost /opt/log"});
  Support::writeFile(root() / "opt/log", "written at run time");
  install({.version = "2.0", .install = "", .files = "%ghost /opt/log"});
  EXPECT_EQ(tree(), "opt 755 directory\nopt/log 644 \"written at run time\"\n");
}

TEST_F(Store, WorksInDirectoriesWithoutWritePermission) {
  const Support::PackageInput closed = {.install = "mkdir -p %{buildroot}/opt/d/e; echo x >%{buildroot}/opt/d/e/f",
                                        .files = "%attr(555, root, root) /opt/d"};
  install(closed);
  EXPECT_EQ(tree(), "opt 755 directory\nopt/d 555 directory\nopt/d/e 555 directory\nopt/d/e/f 555 \"x\n\"\n");
}

TEST_F(Store, DescribesItsPackages) {
  install({.name = "b", .version = "1.2", .release = "3", .preamble = "Epoch: 4"},
          {.developer = "alice-3", .previous = {"alice", "alice-2"}});
  store().install(package({.name = "a"}, {.developer = "system"}), "");
  closeStore();
  const Support::Pki& pki = Support::Pki::instance();
  const std::vector<Sandbox::StoredPackage> found = store().list();
  ASSERT_EQ(found.size(), 2);
  EXPECT_EQ(found[0].name, "a");
  EXPECT_EQ(found[0].version, "1.0-1");
  EXPECT_EQ(found[0].source, "");
  EXPECT_EQ(found[0].developer.keyId, pki.keyId("system"));
  EXPECT_THAT(found[0].developer.previousKeyIds, IsEmpty());
  EXPECT_EQ(found[0].developer.subgroup, "system");
  EXPECT_EQ(found[1].name, "b");
  const Sandbox::StoredPackage b = store().get("b");
  EXPECT_EQ(b.version, "4:1.2-3");
  EXPECT_EQ(b.source, "shop");
  EXPECT_EQ(b.developer.keyId, pki.keyId("alice-3"));
  EXPECT_THAT(b.developer.previousKeyIds, ElementsAre(pki.keyId("alice"), pki.keyId("alice-2")));
  EXPECT_EQ(b.developer.subgroup, "regular");
}

TEST_F(Store, LogsEachOperation) {
  const std::string first = package({});
  const std::string second = package({.version = "2.0"});
  const Support::CapturedLog log;
  installFile(first);
  installFile(second);
  store().remove("sample");
  EXPECT_EQ(log.text(), "[I] Installed: sample 1.0-1\n[I] Updated: sample 2.0-1\n[I] Removed: sample 2.0-1\n");
}

/// A package that another program has added to the database.
class ForeignPackage : public Fixture {
protected:
  void record(const Support::PackageInput& input) {
    store();
    Support::runOrThrow({"rpm", "--dbpath", (root() / "var/lib/rpm").string(), "-i", "--justdb", "--nodeps", "--force",
                         unsignedPackage(input)});
  }
};

TEST_F(ForeignPackage, IsNotManaged) {
  record({});
  const std::string error = "CorruptedInstalledPackage: The package was not installed by this service: sample";
  EXPECT_EQ(errorOf([&] { store().get("sample"); }), error);
  EXPECT_EQ(errorOf([&] { store().remove("sample"); }), error);
  expectRefused(package({.version = "2.0"}), error);
  const Support::CapturedLog log;
  EXPECT_TRUE(store().list().empty());
  EXPECT_EQ(log.text(), "[W] The package was not installed by this service: sample\n");
}

TEST_F(ForeignPackage, CorruptsAPackageOfTheSameName) {
  install({});
  record({.version = "2.0"});
  EXPECT_EQ(errorOf([&] { store().get("sample"); }),
            "CorruptedInstalledPackage: The package was not installed by this service: sample");
}

TEST_F(ForeignPackage, OwnsItsFiles) {
  record({.name = "foreign", .install = "mkdir %{buildroot}/opt; echo x >%{buildroot}/opt/file", .files = "/opt/file"});
  expectRefused(package({.install = "mkdir %{buildroot}/opt; echo y >%{buildroot}/opt/file", .files = "/opt/file"}),
                "FileConflict: Another package has a different file at the path: /opt/file");
}

TEST_F(ForeignPackage, CanBeErasedByItsOwnerAsUsual) {
  install({});
  record({.name = "foreign"});
  Support::runOrThrow({"rpm", "--dbpath", (root() / "var/lib/rpm").string(), "-e", "--justdb", "foreign"});
  EXPECT_THAT(database(), ElementsAre("sample-1.0-1.noarch"));
}

} // namespace
