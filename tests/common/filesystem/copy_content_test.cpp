// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/filesystem/copy_content.h"
#include "tests/support/diagnostics/thrown.h"
#include "tests/support/files/special_files.h"
#include "tests/support/files/write_lease.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include <sys/resource.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using Common::Filesystem::copyContent;
using Support::readFile;
using Support::reasonOf;
using Support::TempDirectory;
using Support::writeFile;

std::string bytes(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>((i * 2654435761U) >> 13U);
  return text;
}

/// Expects copyContent() to fail with the text of std::filesystem::copy_file().
void expectStandardFailure(const fs::path& from, const fs::path& to) {
  const std::string reason = reasonOf([&] { fs::copy_file(from, to); });
  ASSERT_NE(reason, "no exception");
  EXPECT_EQ(reasonOf([&] { copyContent(from, to); }), reason);
}

void expectFailure(const fs::path& from, const fs::path& to, std::errc error) {
  EXPECT_EQ(reasonOf([&] { copyContent(from, to); }),
            fs::filesystem_error("cannot copy file", from, to, std::make_error_code(error)).what());
}

TEST(Content, IsCopiedByteForByte) {
  const TempDirectory directory;
  for (const std::size_t size : {0U, 1U, 4095U, 65535U, 65536U, 65537U, 3'000'000U}) {
    const fs::path from = directory / ("from" + std::to_string(size));
    const fs::path to = directory / ("to" + std::to_string(size));
    writeFile(from, bytes(size));
    copyContent(from, to);
    EXPECT_TRUE(readFile(to) == bytes(size)) << size;
  }
}

TEST(Content, FollowsSymlinks) {
  const TempDirectory directory;
  writeFile(directory / "file", "content");
  fs::create_symlink("file", directory / "link");
  copyContent(directory / "link", directory / "to");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(directory / "to")));
  EXPECT_EQ(readFile(directory / "to"), "content");
}

TEST(Content, IsReadToTheEndDespiteAWrongSize) {
  const TempDirectory directory;
  ASSERT_EQ(fs::file_size("/proc/version"), 0U);
  copyContent("/proc/version", directory / "to");
  EXPECT_EQ(readFile(directory / "to"), readFile("/proc/version"));
}

TEST(Content, IsCopiedBetweenFileSystems) {
  const TempDirectory directory;
  struct stat here {};
  struct stat there {};
  if (stat("/dev/shm", &there) != 0 || stat(directory.path().c_str(), &here) != 0 || here.st_dev == there.st_dev)
    GTEST_SKIP() << "/dev/shm is no other file system";
  writeFile(directory / "from", bytes(200'000));
  const fs::path to = "/dev/shm" / directory.path().filename();
  copyContent(directory / "from", to);
  const std::string copied = readFile(to);
  fs::remove(to);
  EXPECT_TRUE(copied == bytes(200'000));
}

TEST(Content, KeepsThePermissionsDespiteTheUmask) {
  const TempDirectory directory;
  const mode_t before = umask(0027);
  // The umask takes no bit of the last three.
  for (const unsigned mode : {0600U, 0644U, 0777U, 0400U, 0666U, 01755U, 02755U, 04711U, 01740U, 02750U, 04700U}) {
    const fs::path from = directory / ("from" + std::to_string(mode));
    const fs::path to = directory / ("to" + std::to_string(mode));
    writeFile(from, "");
    fs::permissions(from, static_cast<fs::perms>(mode));
    copyContent(from, to);
    EXPECT_EQ(fs::status(to).permissions(), static_cast<fs::perms>(mode)) << std::oct << mode;
  }
  umask(before);
}

TEST(Content, FailsLikeTheStandardCopy) {
  const TempDirectory directory;
  writeFile(directory / "from", "new");
  writeFile(directory / "file", "old");
  writeFile(directory / "closed", "secret");
  fs::create_directory(directory / "directory");
  fs::create_symlink("missing", directory / "dangling");
  fs::create_symlink("loop", directory / "loop");
  fs::create_symlink("file", directory / "link");
  const Support::OrdinaryUser user(directory.path());
  fs::permissions(directory / "closed", fs::perms::none);
  for (const char* to : {"file", "dangling", "link", "from", "missing/to", "file/to", "to/"})
    expectStandardFailure(directory / "from", directory / to);
  for (const char* from : {"missing", "loop", "closed"})
    expectStandardFailure(directory / from, directory / "to");
  expectStandardFailure(directory / "from", directory / std::string(300, 'x'));
  EXPECT_EQ(readFile(directory / "file"), "old");
  EXPECT_FALSE(fs::exists(directory / "to"));
  EXPECT_FALSE(fs::exists(directory / "missing"));
}

TEST(Content, DoesNotReplaceAnExistingFile) {
  const TempDirectory directory;
  writeFile(directory / "from", "new");
  fs::create_directory(directory / "directory");
  fs::create_symlink("loop", directory / "loop");
  for (const char* name : {"directory", "loop"})
    expectFailure(directory / "from", directory / name, std::errc::file_exists);
}

TEST(Content, RefusesAFifoWithoutBlocking) {
  const TempDirectory directory;
  Support::makeFifo(directory / "fifo");
  expectFailure(directory / "fifo", directory / "to", std::errc::not_supported);
  EXPECT_FALSE(fs::exists(directory / "to"));
}

TEST(Content, WaitsForTheEndOfAWriteLease) {
  const TempDirectory directory;
  writeFile(directory / "from", "content");
  const Support::WriteLease lease(directory / "from");
  if (!lease.isHeld())
    GTEST_SKIP() << "no leases on files in " << directory.path();
  copyContent(directory / "from", directory / "to");
  EXPECT_EQ(readFile(directory / "to"), "content");
  EXPECT_TRUE(lease.wasBroken());
}

TEST(Content, FailsOnAFullDiskAndKeepsThePartialFile) {
  const TempDirectory directory;
  writeFile(directory / "from", bytes(200'000));
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{100'000, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  expectFailure(directory / "from", directory / "to", std::errc::file_too_large);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_TRUE(readFile(directory / "to") == bytes(200'000).substr(0, 100'000));
}

} // namespace
