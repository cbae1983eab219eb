// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/files/tree.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>

/// A temporary folder, and the log of the whole test.
class FilesystemTest : public testing::Test {
protected:
  void TearDown() override {
    // GoogleTest's report of the failure is in the captured output too.
    if (HasFailure())
      std::cerr << log.text();
  }

  void expectSilence() const { EXPECT_EQ(log.text(), ""); }

  const Support::TempDirectory directory;
  const std::filesystem::path from = directory / "from";
  const std::filesystem::path to = directory / "to";
  const Support::CapturedLog log;
};

/// Skipped if the file system does not keep attributes.
class AttributesTest : public FilesystemTest {
protected:
  void SetUp() override {
    if (!Support::keepsAttributes(directory.path()))
      GTEST_SKIP() << "no user attributes in " << directory.path();
  }
};

/// A value with zero bytes.
inline const std::string zeros("a\0b\0\0", 5);

/// A path as the log shows it, for names without quotation marks and backslashes.
inline std::string quoted(const std::filesystem::path& path) {
  return '"' + path.string() + '"';
}

inline constexpr const char* contentOfTarget = "[I] Trying to copy content of the symlink target\n";
