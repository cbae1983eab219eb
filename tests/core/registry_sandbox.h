// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "core/registry.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/temp_directory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include <sys/types.h>

/// A temporary root with a registry.
class RegistrySandbox : public testing::Test {
protected:
  using Event = Core::KRV::RegistryRecord::Event;

  /// A record of the package "p", and its line.
  static Core::KRV::RegistryRecord record(std::int64_t timestamp, Event event = Event::Install) {
    return {event, timestamp, "p", "k", {}};
  }
  static std::string line(std::int64_t timestamp, Event event = Event::Install) {
    return toString(record(timestamp, event)) + "\n";
  }

  /// Whether process `id` holds, or waits for, a record lock.
  static bool holdsALock(pid_t id) { return hasLock(id, false); }
  static bool waitsForALock(pid_t id) { return hasLock(id, true); }

  std::string quoted(const std::filesystem::path& path) const { return "\"" + path.string() + "\""; }

  Support::TempDirectory root;
  Support::ScopedEnvironment rootVariable{"KRV_ROOT_FS", root.path().string()};
  std::filesystem::path folder = root / "var/lib/krv";
  std::filesystem::path file = folder / "registry";
  std::filesystem::path lockFile = folder / "registry.lock";
  std::filesystem::path nextFile = folder / "registry.next";

private:
  // A line of /proc/locks: "1: POSIX ADVISORY WRITE 4711 fe:00:1095 0 EOF". A waiting process has "->" after "1:".
  static bool hasLock(pid_t id, bool waiting) {
    std::ifstream locks("/proc/locks");
    for (std::string text; std::getline(locks, text);)
      if (text.find(" WRITE " + std::to_string(id) + " ") != text.npos && (text.find("->") != text.npos) == waiting)
        return true;
    return false;
  }
};
