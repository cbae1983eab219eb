// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

/// Runs a script of sandbox/ that makes a device. Its temporary files are below a folder of the test's own, which is
/// also in the environment of all that it starts: what is left behind shows.
class ScriptTest : public testing::Test {
protected:
  /// The command: the script with the folder of the built programs, and more arguments.
  static std::vector<std::string> script(const std::string& name, const std::vector<std::string>& arguments = {});
  Support::Environment environment() const { return {{"TMPDIR", temporary()}}; }

  /// Nothing lies in the folder of temporary files, and nothing runs that was started with it.
  void expectNothingLeft() const;

  std::string temporary() const { return m_directory / "temporary"; }
  std::vector<std::string> processes() const;

  ScriptTest() { std::filesystem::create_directory(temporary()); }
  Support::TempDirectory m_directory;
};
