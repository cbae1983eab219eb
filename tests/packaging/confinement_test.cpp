// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"
#include "tests/packaging/unit.h"
#include "tests/support/packages/open_pgp_key.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;
using Support::program;
using Support::writeFile;

/// Runs the tool confined like its systemd unit, by bubblewrap and a system-call filter.
class Confinement : public testing::Test {
protected:
  void SetUp() override {
    const Support::ProcessResult probe = Support::run({"bwrap", "--ro-bind", "/", "/", "--unshare-net", "true"});
    if (probe.status != 0)
      GTEST_SKIP() << "bubblewrap may not make namespaces here: " << probe.errors;
    if (Support::run({"systemd-analyze", "--version"}).status == 127)
      GTEST_SKIP() << "systemd-analyze, which knows the groups of system calls, is not here";
    std::string calls;
    for (const std::string& call : systemCallsOfUnit())
      calls += call + "\n";
    writeFile(systemCalls(), calls);
    fs::create_directories(stateDirectory()); // as StateDirectory= does
    m_key.import();
  }

  fs::path systemCalls() { return m_device.rpm().path() / "system-calls"; }
  fs::path stateDirectory() const { return m_device.registry().parent_path(); }

  /// Closes the database like its last user, without the temporary files beside it.
  void closeDatabase() {
    const fs::path file = m_device.rpm().database() / "rpmdb.sqlite";
    ASSERT_TRUE(fs::exists(file));
    ASSERT_EQ(fs::file_size(file.string() + "-wal"), 0u);
    fs::remove(file.string() + "-wal");
    fs::remove(file.string() + "-shm");
  }

  /// `command` in a confinement where only `writable` can be written. It has its own /tmp, which contains the device
  /// and the socket of its bus, no network, no capabilities and only the unit's system calls.
  Arguments confined(const Arguments& command, const std::vector<fs::path>& writable) {
    const std::string device = m_device.rpm().path().string();
    const std::string bus = m_device.bus().socket().parent_path().string();
    const std::string programs = program("confined").parent_path().string();
    Arguments arguments = {"bwrap",
                           "--die-with-parent",
                           "--unshare-net",
                           "--cap-drop",
                           "ALL",
                           "--ro-bind",
                           "/",
                           "/",
                           "--dev",
                           "/dev",
                           "--proc",
                           "/proc",
                           "--tmpfs",
                           "/tmp"};
    for (const std::string& path : {device, bus, programs})
      arguments.insert(arguments.end(), {"--ro-bind", path, path});
    for (const fs::path& path : writable)
      arguments.insert(arguments.end(), {"--bind", path.string(), path.string()});
    arguments.insert(arguments.end(), {program("confined").string(), systemCalls().string()});
    arguments.insert(arguments.end(), command.begin(), command.end());
    return arguments;
  }

  /// The paths that the tool may write by the unit. The RPM database is at another path than on a device.
  std::vector<fs::path> writableByUnit() {
    std::vector<fs::path> paths;
    for (const std::string& name : valuesInUnit("StateDirectory"))
      paths.push_back(m_device.root() / "var/lib" / name);
    for (const std::string& path : valuesInUnit("ReadWritePaths"))
      if (path == "-/var/lib/rpm")
        paths.push_back(m_device.rpm().database());
    return paths;
  }

  /// The umask of the unit, or systemd's default.
  static mode_t maskOfUnit() {
    const std::vector<std::string> values = valuesInUnit("UMask");
    return values.empty() ? 0022 : static_cast<mode_t>(std::stoul(values.back(), nullptr, 8));
  }

  Device::Run runConfined(const std::vector<fs::path>& writable) {
    closeDatabase();
    // The leak checker needs system calls that the unit does not allow.
    Support::Process tool(confined({program("krv-pre-installer").string()}, writable),
                          {{"KRV_ROOT_FS", m_device.root().string()}, {"ASAN_OPTIONS", "detect_leaks=0"}}, ".",
                          [mask = maskOfUnit()] { umask(mask); });
    return m_device.finish(tool);
  }

  std::string expectedLog(const std::map<std::string, std::string>& linesOf) const {
    std::string log;
    for (const fs::path& path : m_device.entries())
      log += linesOf.at(path.stem());
    return log + timeLine;
  }

  Device m_device;
  Support::OpenPgpKey m_key{m_device.rpm()};
};

/// The unit takes from root the right to read the files of others. Each test gives something on the device to nobody.
class ConfinementOfRoot : public Confinement {
protected:
  void SetUp() override {
    if (geteuid() != 0)
      GTEST_SKIP() << "only root can give a file to another user";
    Confinement::SetUp();
  }

  static void giveToNobody(const fs::path& path, mode_t mode) {
    constexpr uid_t nobody = 65534;
    ASSERT_EQ(chown(path.c_str(), nobody, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
  }

  std::string unlistedLog(const fs::path& path, const std::string& reason) const {
    return "[E] filesystem error: " + reason + ": Permission denied [" + path.string() +
           "]\n[E] Couldn't read directory: " + m_device.preinstallDirectory().string() +
           "\n[E] Failed to get a list of packages to pre-install\n";
  }
};

TEST_F(Confinement, AllowsTheToolToWork) {
  const fs::path fresh = m_device.add({.name = "fresh"});
  const fs::path newer = m_device.add({.name = "newer", .version = "2.0"}, "alice-2", {"alice"});
  m_device.service().hasInstalled("newer", "1.0-1", Support::Pki::instance().keyId("alice"));
  const fs::path sealed = m_device.add({.name = "sealed"}, "");
  m_key.sign(sealed);
  Support::sign(sealed, "bob");
  const fs::path removed = m_device.add({.name = "removed"});
  writeFile(m_device.registry(),
            "timestamp=1 event=R package=removed keyid=" + Support::Pki::instance().keyId("alice") + "\n");

  const auto run = runConfined(writableByUnit());
  EXPECT_EQ(run.log, expectedLog({{"fresh", installedLine(fresh)},
                                  {"newer", installedLine(newer)},
                                  {"sealed", installedLine(sealed)},
                                  {"removed", "[I] The package was manually removed by the user: " + quoted(removed) +
                                                  "\n" + skippedLine(removed)}}));
  EXPECT_EQ(run.status, 0);
}

TEST_F(Confinement, AllowsTheFirstBoot) {
  const fs::path fresh = m_device.add({});
  const auto run = runConfined(writableByUnit());
  EXPECT_EQ(run.log, installedLine(fresh) + timeLine);
  EXPECT_EQ(run.status, 0);
  // A process that can open the lock file for reading can hold a shared lock on it without limit.
  EXPECT_EQ(fs::status(m_device.registry() += ".lock").permissions(), fs::perms(0600));
}

TEST_F(Confinement, MustAllowWritingTheRpmDatabase) {
  const fs::path sealed = m_device.add({}, "");
  m_key.sign(sealed);
  Support::sign(sealed, "alice");
  const auto run = runConfined({stateDirectory()});
  EXPECT_EQ(run.log, unreadableLines("Couldn't read rpm package", sealed) + timeLine);
}

TEST_F(Confinement, MustAllowWritingTheRegistryFolder) {
  const fs::path fresh = m_device.add({});
  const auto run = runConfined({m_device.rpm().database()});
  EXPECT_EQ(run.log, "[E] Couldn't create the registry lock file: " + quoted(m_device.registry() += ".lock") +
                         "\n[E] Failed to read records from krv registry\n" + installedLine(fresh) + timeLine);
}

TEST_F(ConfinementOfRoot, DoesNotLetItReadAPackageOfAnother) {
  const fs::path closed = m_device.add({.name = "closed"});
  const fs::path open = m_device.add({.name = "open"});
  giveToNobody(closed, 0600);
  giveToNobody(open, 0640); // readable for its group, which is root
  EXPECT_EQ(m_device.run().log, expectedLog({{"closed", installedLine(closed)}, {"open", installedLine(open)}}));
  const auto run = runConfined(writableByUnit());
  EXPECT_EQ(run.log, expectedLog({{"closed", unreadableLines("Couldn't open rpm package", closed)},
                                  {"open", installedLine(open)}}));
  EXPECT_EQ(run.status, 0);
}

/// A command in an indented block of a document.
std::string documentedCommand(const fs::path& document, const std::string& program) {
  std::istringstream lines(Support::readFile(fs::path(KRV_SOURCE_DIRECTORY) / document));
  std::string line;
  while (std::getline(lines, line))
    if (line.starts_with("    " + program + " "))
      return line.substr(4);
  return "false";
}

TEST_F(ConfinementOfRoot, IsShownByTheCommandOfThePage) {
  const fs::path package = m_device.add({});
  giveToNobody(package, 0600);
  const std::string command = documentedCommand("docs/troubleshooting.md", "setpriv");
  Support::Process tool({"bash", "-c", command},
                        {{"KRV_ROOT_FS", m_device.root().string()},
                         {"PATH", program("krv-pre-installer").parent_path().string() + ":" + std::getenv("PATH")}});
  EXPECT_EQ(m_device.finish(tool).log, unreadableLines("Couldn't open rpm package", package) + timeLine);
}

TEST_F(ConfinementOfRoot, DoesNotLetItListADirectoryOfAnother) {
  m_device.add({});
  giveToNobody(m_device.preinstallDirectory(), 0700);
  const auto run = runConfined(writableByUnit());
  EXPECT_EQ(run.log, unlistedLog(m_device.preinstallDirectory(), "directory iterator cannot open directory"));
  EXPECT_EQ(run.status, 1);
}

TEST_F(ConfinementOfRoot, DoesNotLetItFollowASymlinkIntoADirectoryOfAnother) {
  const fs::path package = m_device.add({});
  const fs::path folder = m_device.root() / "closed";
  fs::create_directory(folder);
  fs::rename(package, folder / "package.rpm");
  fs::create_symlink("../../../../closed/package.rpm", package);
  giveToNobody(folder, 0700);
  const auto run = runConfined(writableByUnit());
  EXPECT_EQ(run.log, unlistedLog(package, "cannot get file time"));
  EXPECT_EQ(run.status, 1);
}

TEST_F(ConfinementOfRoot, DoesNotLetItReadARegistryOfAnother) {
  const fs::path package = m_device.add({});
  writeFile(m_device.registry(), "");
  giveToNobody(m_device.registry(), 0600);
  const auto run = runConfined(writableByUnit());
  EXPECT_EQ(run.log, "[E] Couldn't open registry: " + quoted(m_device.registry()) +
                         "\n[E] Failed to read records from krv registry\n" + installedLine(package) + timeLine);
}

TEST_F(Confinement, IsEffectiveInTheseTests) {
  const auto errorsOf = [&](const std::string& command) {
    return Support::run(confined({"/bin/sh", "-c", command}, writableByUnit()), {{"LC_ALL", "C"}}).errors;
  };
  const std::string outside = (m_device.root() / "file").string();
  const std::string inside = (stateDirectory() / "file").string();
  EXPECT_EQ(errorsOf("touch " + inside), "");
  EXPECT_EQ(errorsOf("touch " + outside), "touch: cannot touch '" + outside + "': Read-only file system\n");
  EXPECT_EQ(errorsOf("chown 0 " + inside), "chown: changing ownership of '" + inside + "': Operation not permitted\n");
  EXPECT_EQ(errorsOf("bash -c ': </dev/tcp/127.0.0.1/9' 2>&1 | grep -q 'Operation not permitted' && echo refused >&2"),
            "refused\n");
}

} // namespace
