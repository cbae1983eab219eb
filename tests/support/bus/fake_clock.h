// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <filesystem>
#include <string>

namespace Support {

class ScriptedService;

/// The clock of a child process that was started with its environment. Settings: so many seconds later ("+30s") or so
/// many times faster ("+0s x100"). The clock continues from its last setting.
class FakeClock {
public:
  FakeClock() { set("+0s"); }

  Environment environment() const;
  void set(const std::string& setting) const;

  /// For a child that waits for an answer which `service` holds back: sets the clock `seconds` later, makes the child
  /// read the clock, and then sends the answer. Returns false if the child does not wait as expected.
  bool answerAfter(int seconds, Process& child, ScriptedService& service) const;

private:
  TempDirectory m_directory;
  std::filesystem::path m_file = m_directory / "clock";
};

} // namespace Support
