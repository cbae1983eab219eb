// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/configuration.h"
#include "common/rpm/reader.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/diagnostics/own_process.h"
#include "tests/support/packages/open_pgp_key.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmtag.h>

#include <cstdio>
#include <filesystem>
#include <functional>

namespace {

using Support::CapturedLog;

TEST(RpmConfiguration, IsReadOnceAndSilently) {
  if (Support::ranInItsOwnProcess())
    return;
  const Support::RpmSandbox sandbox;
  const CapturedLog log;
  EXPECT_FALSE(Common::Rpm::isRpmConfigured());
  Common::Rpm::ensureRpmConfig();
  EXPECT_TRUE(Common::Rpm::isRpmConfigured());
  Common::Rpm::ensureRpmConfig();
  EXPECT_EQ(log.text(), "");
}

TEST(RpmConfiguration, IsReadAgainAfterAFailure) {
  if (Support::ranInItsOwnProcess())
    return;
  const Support::RpmSandbox sandbox;
  sandbox.build({}, sandbox.path() / "sample.rpm");
  const std::filesystem::path folder = sandbox.path() / "configuration";
  const Support::ScopedEnvironment configuration("RPM_CONFIGDIR", folder.string());
  {
    const CapturedLog log;
    const Common::Rpm::Reader first((sandbox.path() / "sample.rpm").string());
    const Common::Rpm::Reader second((sandbox.path() / "sample.rpm").string());
    EXPECT_EQ(second.tag(RPMTAG_NAME), "sample");
    EXPECT_EQ(log.text(), "[W] Couldn't read RPM configuration files\n[W] Couldn't read RPM configuration files\n");
  }
  EXPECT_FALSE(Common::Rpm::isRpmConfigured());
  std::filesystem::create_directory_symlink("/usr/lib/rpm", folder);
  const CapturedLog log;
  const Common::Rpm::Reader third((sandbox.path() / "sample.rpm").string());
  EXPECT_TRUE(Common::Rpm::isRpmConfigured());
  EXPECT_EQ(log.text(), "");
}

// The keyring is in the database, and only the configuration says where that is.
TEST(RpmConfiguration, ProvidesTheKeyringAfterAFailureToo) {
  if (Support::ranInItsOwnProcess())
    return;
  const Support::RpmSandbox sandbox;
  rpmPopMacro(nullptr, "_dbpath"); // the one that the sandbox has defined in this process
  const std::string package = (sandbox.path() / "sample.rpm").string();
  const std::string sealed = (sandbox.path() / "sealed.rpm").string();
  sandbox.build({}, package);
  sandbox.build({.name = "sealed"}, sealed);
  const Support::OpenPgpKey key(sandbox);
  key.sign(sealed);
  key.import();
  const std::filesystem::path folder = sandbox.path() / "configuration";
  const Support::ScopedEnvironment configuration("RPM_CONFIGDIR", folder.string());
  EXPECT_EQ(Common::Rpm::Reader(package).tag(RPMTAG_NAME), "sample");
  EXPECT_FALSE(Common::Rpm::isRpmConfigured());
  std::filesystem::create_directory_symlink("/usr/lib/rpm", folder);
  EXPECT_EQ(Common::Rpm::Reader(sealed).tag(RPMTAG_NAME), "sealed");
}

/// The output of `action` on standard error.
std::string errorsOf(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

TEST(RpmConfiguration, PrintsNoticesToStandardError) {
  if (Support::ranInItsOwnProcess())
    return;
  const Support::RpmSandbox sandbox;
  sandbox.build({}, sandbox.path() / "sample.rpm");
  Support::writeFile(sandbox.home() / ".rpmmacros", "%_dbpath %{echo:a notice}" + sandbox.database().string() + "\n");
  const CapturedLog log;
  EXPECT_THAT(errorsOf([&] { const Common::Rpm::Reader reader((sandbox.path() / "sample.rpm").string()); }),
              testing::StartsWith("a notice\n"));
  std::fflush(stdout);
  EXPECT_EQ(log.text(), "");
}

} // namespace
