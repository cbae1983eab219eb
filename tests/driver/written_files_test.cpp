// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"
#include "tests/support/packages/rpm_version.h"
#include "tests/support/signing/pki.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using Support::readFile;
using Support::writeFile;

/// Calls that change nothing. Every other one is taken for one that does.
const std::set<std::string> readingCalls = {"access", "chdir",  "execve",  "faccessat",  "faccessat2", "fstatat64",
                                            "getcwd", "lstat",  "lstat64", "newfstatat", "readlink",   "readlinkat",
                                            "stat",   "stat64", "statfs",  "statfs64",   "statx"};

/// Whether a line of the trace, behind the process's number, tells of a file that was, or was to be, written, made,
/// removed, renamed or given other attributes.
bool isWriting(const std::string& call) {
  const std::string name = call.substr(0, call.find('('));
  if (name != "open" && name != "openat")
    return !readingCalls.contains(name);
  for (const char* flag : {"O_WRONLY", "O_RDWR", "O_CREAT", "O_TRUNC"}) {
    if (call.find(flag) != std::string::npos)
      return true;
  }
  return false;
}

/// The paths of a call, which stand in double quotes, or in angle brackets behind a descriptor if there is no other.
/// The path of a file that is opened by its descriptor stands behind the result.
std::set<fs::path> pathsOf(const std::string& call) {
  std::set<fs::path> paths;
  if (call.find("\"/proc/self/fd/") != std::string::npos) {
    const std::size_t begin = call.find('<', call.rfind(" = "));
    return {call.substr(begin + 1, call.rfind('>') - begin - 1)};
  }
  for (std::size_t begin = call.find('"'); begin != std::string::npos;) {
    const std::size_t end = call.find('"', begin + 1);
    paths.insert(call.substr(begin + 1, end - begin - 1));
    begin = call.find('"', end + 1);
  }
  if (const std::size_t begin = call.find('<'); paths.empty() && begin != std::string::npos)
    paths.insert(call.substr(begin + 1, call.find('>') - begin - 1));
  return paths;
}

/// Whether `folder` is `path` or above it.
bool holds(const fs::path& folder, const fs::path& path) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

class WrittenFiles : public testing::Test {
protected:
  WrittenFiles() {
    // As on a device: there is a database, somebody has read it, and there is /var/lib.
    Support::runOrThrow({"rpm", "--initdb"});
    Support::runOrThrow({"rpm", "-qa"});
    fs::create_directories(m_device.root() / "var/lib");
    m_device.add({.name = "good"});
    m_device.add({.name = "unsigned"}, "");
    m_device.add({.name = "newer", .version = "2.0"});
    m_device.service().hasInstalled("newer", "1.0-1", Support::Pki::instance().keyId("alice"));
    writeFile(m_device.preinstallDirectory() / "damaged.rpm", "This is no package.\n");
  }

  /// Runs the tool and returns the paths that it wrote to or meant to.
  std::set<fs::path> run() {
    const fs::path trace = m_device.rpm().path() / "trace";
    Support::Process tool({"strace", "-f", "-y", "-s", "4096", "-o", trace, "-e",
                           "trace=%file,fchmod,fchown,fsetxattr,fremovexattr,ftruncate,fallocate",
                           Support::program("krv-pre-installer")},
                          {{"KRV_ROOT_FS", m_device.root().string()}, {"ASAN_OPTIONS", "detect_leaks=0"}});
    EXPECT_EQ(Device::finish(tool).status, 0);
    std::set<fs::path> written;
    std::istringstream lines(readFile(trace));
    for (std::string process, call; lines >> process && std::getline(lines >> std::ws, call);) {
      const bool isCall = call.find('(') != std::string::npos && !call.starts_with("+++") && !call.starts_with("---");
      if (isCall && isWriting(call) && !isForTheDatabasesFolder(call))
        written.merge(pathsOf(call));
    }
    return written;
  }

  /// librpm 4.20 calls mkdir for the database's folder and for each one above it, although they are there; 4.18 asks
  /// whether they are.
  bool isForTheDatabasesFolder(const std::string& call) {
    return Support::librpmIsAtLeast("4.20") && call.starts_with("mkdir(") && call.find("= -1 EEXIST") != call.npos &&
           holds(*pathsOf(call).begin(), m_device.rpm().database());
  }

  fs::path registryFolder() const { return m_device.root() / "var/lib/krv"; }

  Device m_device;
};

MATCHER_P(IsIn, folder, "") {
  return holds(folder, arg);
}

TEST_F(WrittenFiles, AreTheRegistrysAndWhatReadingTheRpmDatabaseNeeds) {
  if (Support::run({"strace", "-o", "/dev/null", "true"}).status != 0)
    GTEST_SKIP() << "strace may not trace here";
  const fs::path database = m_device.rpm().database();
  const std::string packages = readFile(database / "rpmdb.sqlite");
  const std::string record = "timestamp=1 event=R package=good keyid=other\n";
  writeFile(m_device.registry(), record);

  const std::set<fs::path> written = run();
  EXPECT_THAT(written, testing::Contains(registryFolder() / "registry.lock"));
  EXPECT_THAT(written, testing::Each(testing::AnyOf(IsIn(registryFolder()), IsIn(database))));
  EXPECT_EQ(readFile(database / "rpmdb.sqlite"), packages);
  EXPECT_EQ(readFile(m_device.registry()), record);
}

TEST_F(WrittenFiles, IncludeTheRegistrysFolderWhenThereIsNone) {
  if (Support::run({"strace", "-o", "/dev/null", "true"}).status != 0)
    GTEST_SKIP() << "strace may not trace here";
  EXPECT_THAT(run(), testing::Each(testing::AnyOf(IsIn(registryFolder()), IsIn(m_device.rpm().database()))));
  EXPECT_TRUE(fs::is_empty(registryFolder() / "registry.lock"));
}

} // namespace
