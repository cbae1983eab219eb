// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/packaging/unit.h"
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

namespace {

/// systemd checks that the unit's program exists, but it is not installed here. A symlink to the program of this build
/// replaces it, in a folder whose name needs quotes.
class Unit : public testing::Test {
protected:
  Unit() {
    static const std::regex program("(\nExecStart=\").*(/krv-pre-installer\"\n)");
    const std::filesystem::path folder = m_directory / "with space";
    std::filesystem::create_directory(folder);
    std::filesystem::create_symlink(Support::program("krv-pre-installer"), folder / "krv-pre-installer");
    const std::string text = Support::readFile(unitFile());
    Support::writeFile(m_unit, std::regex_replace(text, program, "$1" + folder.string() + "$2"));
  }

  void SetUp() override {
    if (Support::run({"systemd-analyze", "--version"}).status == 127)
      GTEST_SKIP() << "systemd-analyze is not here";
  }

  Support::TempDirectory m_directory;
  std::filesystem::path m_unit = m_directory / "krv-pre-installer.service";
};

TEST_F(Unit, PassesSystemdAnalyzeVerify) {
  // man(1) does not find the manual pages; another test checks that the unit names an installed page.
  const Support::ProcessResult result = Support::run({"systemd-analyze", "verify", "--man=no", m_unit.string()});
  EXPECT_EQ(result.output + result.errors, "");
  EXPECT_EQ(result.status, 0);
}

TEST_F(Unit, HasASecurityExposureBelowMedium) {
  // In tenths: systemd calls exposures from 5.0 on MEDIUM.
  const Support::ProcessResult result =
      Support::run({"systemd-analyze", "--no-pager", "security", "--offline=true", "--threshold=49", m_unit.string()});
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
}

} // namespace
