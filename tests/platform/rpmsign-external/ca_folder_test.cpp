// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/temp_directory.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>
#include <rpmsign-external/verification.h>

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using PackageSignatures::CaFolder;

class CaFolderTest : public testing::Test {
protected:
  const Support::TempDirectory& folder() const { return m_folder; }

  CaFolder state(const std::filesystem::path& path) const { return PackageSignatures::checkCaFolder(path.c_str()); }
  CaFolder state() const { return state(folder().path()); }

private:
  Support::TempDirectory m_folder;
};

TEST_F(CaFolderTest, IsUsableWithACertificateUnderItsHash) {
  EXPECT_EQ(state(Support::Pki::instance().trustedCa()), CaFolder::Usable);
  std::filesystem::create_symlink(Support::Pki::instance().trustedCa(), folder() / "link");
  EXPECT_EQ(state(folder() / "link"), CaFolder::Usable);
}

TEST_F(CaFolderTest, IsMissing) {
  EXPECT_EQ(state(folder() / "missing"), CaFolder::Missing);
  EXPECT_EQ(state(""), CaFolder::Missing);
  std::filesystem::create_symlink("nowhere", folder() / "link");
  EXPECT_EQ(state(folder() / "link"), CaFolder::Missing);
}

TEST_F(CaFolderTest, IsNoDirectory) {
  EXPECT_EQ(state(Support::Pki::instance().certificate("ca")), CaFolder::NotADirectory);
  ASSERT_EQ(mkfifo((folder() / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(state(folder() / "fifo"), CaFolder::NotADirectory);
}

TEST_F(CaFolderTest, IsNotRehashed) {
  EXPECT_EQ(state(), CaFolder::NotRehashed);
  // The last one is the name of a revocation list.
  for (const char* name : {"ca.pem", "0123456.0", "012345678.0", "0123456g.0", "01234567", "01234567.", "01234567.x",
                           "01234567.0x", "01234567.r0"})
    std::filesystem::copy_file(Support::Pki::instance().certificate("ca"), folder() / name);
  EXPECT_EQ(state(), CaFolder::NotRehashed);
  std::filesystem::copy_file(Support::Pki::instance().certificate("ca"), folder() / "89abcdef.12");
  EXPECT_EQ(state(), CaFolder::Usable);
}

TEST_F(CaFolderTest, IsUnreadableWhenNoCertificateInItCanBeOpened) {
  std::filesystem::create_symlink("nowhere", folder() / "01234567.0");
  ASSERT_EQ(mkfifo((folder() / "01234567.1").c_str(), 0600), 0);
  EXPECT_EQ(state(), CaFolder::Unreadable);
  std::filesystem::copy_file(Support::Pki::instance().certificate("ca"), folder() / "01234567.2");
  EXPECT_EQ(state(), CaFolder::Usable);
}

TEST_F(CaFolderTest, IsUnreadableWithoutPermission) {
  if (geteuid() == 0)
    GTEST_SKIP() << "root may read everything";
  std::filesystem::create_directory(folder() / "closed");
  for (const auto mode : {std::filesystem::perms::none, std::filesystem::perms::owner_exec}) {
    std::filesystem::permissions(folder() / "closed", mode);
    EXPECT_EQ(state(folder() / "closed"), CaFolder::Unreadable);
    EXPECT_EQ(state(folder() / "closed/in"),
              mode == std::filesystem::perms::none ? CaFolder::Unreadable : CaFolder::Missing);
  }
}

} // namespace
