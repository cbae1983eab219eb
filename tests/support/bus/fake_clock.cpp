// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/bus/fake_clock.h"

#include "tests/support/bus/scripted_service.h"
#include "tests/support/process/wait.h"

#include <fstream>

namespace Support {

namespace {

/// As the faketime command preloads it.
std::string faketimeLibrary() {
  return runOrThrow({"faketime", "-f", "+0", "sh", "-c", "printf %s \"$LD_PRELOAD\""});
}

/// While a process sleeps, how many times it has fallen asleep; nothing while it is awake. After its call a client only
/// sleeps to wait for messages.
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
          // AddressSanitizer wants to be preloaded before anything else.
          {"ASAN_OPTIONS", "verify_asan_link_order=0"}};
}

void FakeClock::set(const std::string& setting) const {
  // A child that looks in the meantime must not find an empty file.
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
