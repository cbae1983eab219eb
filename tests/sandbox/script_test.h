// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

/// Runs a script of sandbox/ that makes a device. Its folder for temporary files belongs to the test and is in the
/// environment of all its processes, so the test finds files and processes that were left behind.
class ScriptTest : public testing::Test {
protected:
  /// The command: the script, the folder of the built programs, and further arguments.
  static std::vector<std::string> script(const std::string& name, const std::vector<std::string>& arguments = {});
  Support::Environment environment() const { return {{"TMPDIR", temporary()}}; }

  /// Expects no file in the folder of temporary files and no process with it in its environment.
  void expectNothingLeft() const;

  std::string temporary() const { return m_directory / "temporary"; }
  std::vector<std::string> processes() const;

  ScriptTest() { std::filesystem::create_directory(temporary()); }
  Support::TempDirectory m_directory;
};
