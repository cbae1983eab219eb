// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/driver/device.h"
#include "tests/support/faults/supervised.h"
#include "tests/support/signing/pki.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>

#include <sys/syscall.h>

namespace {

namespace fs = std::filesystem;
using Support::readFile;
using Support::SeenCall;
using Support::writeFile;

/// Calls that change no file, and calls on a descriptor that can write only if it was opened for writing. Every other
/// call counts as a change.
const std::set<std::string> harmlessCalls = {
    "access",     "chdir",      "close", "dup",    "dup2",       "dup3",    "execve",   "faccessat",
    "faccessat2", "fadvise64",  "fcntl", "fstat",  "fstatfs",    "fsync",   "getdents", "getdents64",
    "ioctl",      "lseek",      "lstat", "mmap",   "newfstatat", "pread64", "pwrite64", "read",
    "readlink",   "readlinkat", "stat",  "statfs", "statx",      "write",   "writev"};

/// Calls of the bus connection. Its socket has an abstract name, so it is not a file.
const std::set<long> busCalls = {SYS_bind,       SYS_eventfd2, SYS_getpeername, SYS_getsockname,
                                 SYS_getsockopt, SYS_recvmsg,  SYS_setsockopt};

/// Whether `folder` is `path` or an ancestor of it.
bool holds(const fs::path& folder, const fs::path& path) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

class WrittenFiles : public testing::Test {
protected:
  WrittenFiles() {
    // As on a device: the database exists and has been read, and /var/lib exists.
    Support::runOrThrow({"rpm", "--initdb"});
    Support::runOrThrow({"rpm", "-qa"});
    fs::create_directories(m_device.root() / "var/lib");
    m_device.add({.name = "good"});
    m_device.add({.name = "unsigned"}, "");
    m_device.add({.name = "newer", .version = "2.0"});
    m_device.service().hasInstalled("newer", "1.0-1", Support::Pki::instance().keyId("alice"));
    writeFile(m_device.preinstallDirectory() / "damaged.rpm", "This is no package.\n");
  }

  void SetUp() override {
    if (!Support::canSupervise())
      GTEST_SKIP() << "the kernel, or what confines this process, does not let processes be supervised";
  }

  /// Runs the tool and returns the paths that it wrote to or tried to write to.
  std::set<fs::path> run() {
    std::set<fs::path> written;
    const auto look = [&](const SeenCall& call) {
      if (!call.opensReadOnly && !harmlessCalls.contains(call.name) && !isForTheDatabasesFolder(call))
        written.insert({call.path, call.otherPath});
      return 0;
    };
    const auto result = Support::runSupervised({Support::program("krv-pre-installer")},
                                               {{"KRV_ROOT_FS", m_device.root().string()}}, "/", {}, look);
    EXPECT_EQ(result.process.status, 0);
    std::set<long> unknown;
    std::ranges::set_difference(result.unknownCalls, busCalls, std::inserter(unknown, unknown.end()));
    EXPECT_EQ(unknown, std::set<long>()) << "nobody knows whether these write";
    written.erase("");
    return written;
  }

  /// librpm 4.20 calls mkdir for the existing folder of the database and each folder above it; 4.18 first checks
  /// whether they exist.
  bool isForTheDatabasesFolder(const SeenCall& call) {
    return call.name == "mkdir" && fs::exists(call.path) && holds(call.path, m_device.rpm().database());
  }

  fs::path registryFolder() const { return m_device.root() / "var/lib/krv"; }

  Device m_device;
};

MATCHER_P(IsIn, folder, "") {
  return holds(folder, arg);
}

TEST_F(WrittenFiles, AreOnlyTheRegistryAndTheFilesForReadingTheRpmDatabase) {
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

TEST_F(WrittenFiles, IncludeAMissingRegistryFolder) {
  EXPECT_THAT(run(), testing::Each(testing::AnyOf(IsIn(registryFolder()), IsIn(m_device.rpm().database()))));
  EXPECT_TRUE(fs::is_empty(registryFolder() / "registry.lock"));
}

} // namespace
