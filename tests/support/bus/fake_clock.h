// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <filesystem>
#include <string>

namespace Support {

class ScriptedService;

/// The clock of a child process that was started with its environment. It runs on from what it was last set to: so
/// many seconds later ("+30s") or so many times faster ("+0s x100").
class FakeClock {
public:
  FakeClock() { set("+0s"); }

  Environment environment() const;
  void set(const std::string& setting) const;

  /// For a child that waits for an answer which `service` holds back: sets the clock to so many seconds later, sees to
  /// it that the child looks at it, and only then has the answer sent. False when the child does not behave like that.
  bool answerAfter(int seconds, Process& child, ScriptedService& service) const;

private:
  TempDirectory m_directory;
  std::filesystem::path m_file = m_directory / "clock";
};

} // namespace Support
