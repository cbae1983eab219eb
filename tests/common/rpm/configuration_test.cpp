// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/configuration.h"
#include "common/rpm/reader.h"
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/temp_directory.h"

#include <gmock/gmock.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmtag.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>

namespace {

using Support::CapturedLog;

TEST(RpmConfiguration, IsReadOnceAndSilently) {
  const Support::RpmSandbox sandbox;
  const CapturedLog log;
  EXPECT_FALSE(Common::Rpm::isRpmConfigured());
  Common::Rpm::ensureRpmConfig();
  EXPECT_TRUE(Common::Rpm::isRpmConfigured());
  Common::Rpm::ensureRpmConfig();
  EXPECT_EQ(log.text(), "");
}

TEST(RpmConfiguration, IsTriedAgainAfterAFailure) {
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

/// Collects what reaches standard error.
std::string errorsOf(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

TEST(RpmConfiguration, LetsNoticesGoToStandardError) {
  const Support::RpmSandbox sandbox;
  sandbox.build({}, sandbox.path() / "sample.rpm");
  Support::writeFile(sandbox.home() / ".rpmmacros", "%_dbpath %{echo:a notice}" + sandbox.database().string() + "\n");
  const CapturedLog log;
  EXPECT_THAT(errorsOf([&] { const Common::Rpm::Reader reader((sandbox.path() / "sample.rpm").string()); }),
              testing::StartsWith("a notice\n"));
  std::fflush(stdout);
  EXPECT_EQ(log.text(), "");
}

// Macros are expanded in the path again.
TEST(RpmConfiguration, TakesPercentSignsInTheDatabasesFolderAsTheyAre) {
  const Support::RpmSandbox sandbox;
  for (const char* name : {"100%", "%{name}", "%%_dbpath", "%(echo x)"}) {
    const std::filesystem::path folder = sandbox.path() / name;
    Common::Rpm::setDatabaseFolder(folder);
    const std::unique_ptr<char, decltype(&std::free)> path(rpmExpand("%{_dbpath}", nullptr), &std::free);
    EXPECT_EQ(path.get(), folder.string());
    rpmPopMacro(nullptr, "_dbpath");
  }
}

} // namespace
