// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/fake_clock.h"

#include "tests/support/bus/scripted_service.h"
#include "tests/support/process/wait.h"

#include <fstream>

namespace Support {

namespace {

/// The library that the faketime command preloads.
std::string faketimeLibrary() {
  return runOrThrow({"faketime", "-f", "+0", "sh", "-c", "printf %s \"$LD_PRELOAD\""});
}

/// While a process sleeps, the number of its sleeps; empty while it runs. After it has sent its call, a client sleeps
/// only to wait for messages.
std::string currentSleep(const Process& child) {
  std::ifstream status("/proc/" + std::to_string(child.id()) + "/status");
  std::string line;
  bool isAsleep = false;
  while (std::getline(status, line)) {
    isAsleep = isAsleep || line.starts_with("State:\tS");
    if (isAsleep && line.starts_with("voluntary_ctxt_switches"))
      return line;
  }
  return "";
}

} // namespace

Environment FakeClock::environment() const {
  return {{"LD_PRELOAD", faketimeLibrary()},
          {"FAKETIME_TIMESTAMP_FILE", m_file},
          {"FAKETIME_NO_CACHE", "1"},
          {"SYSTEMD_BUS_TIMEOUT", std::nullopt},
          // By default AddressSanitizer refuses to start if another library is preloaded before it.
          {"ASAN_OPTIONS", "verify_asan_link_order=0"}};
}

void FakeClock::set(const std::string& setting) const {
  // The rename is atomic: the child never reads an empty file.
  writeFile(m_file.string() + ".new", setting + "\n");
  std::filesystem::rename(m_file.string() + ".new", m_file);
}

bool FakeClock::answerAfter(int seconds, Process& child, ScriptedService& service) const {
  std::string sleep;
  if (!waitUntil([&] { return !(sleep = currentSleep(child)).empty(); }))
    return false;
  set("+" + std::to_string(seconds) + "s");
  service.nudge();
  const bool hasLooked = waitUntil([&] {
    const std::string next = currentSleep(child);
    return !child.isRunning() || (!next.empty() && next != sleep);
  });
  service.release();
  return hasLooked;
}

} // namespace Support
