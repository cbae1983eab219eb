// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/real_device.h"
#include "tests/sandbox/text.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/tools/krv-image-check/comparison.h"
#include "tests/tools/krv-image-check/package_pool.h"
#include "tests/tools/krv-image-check/random_history.h"
#include "tools/krv-image-check/simulated_device.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace ImageCheckTest;
using ImageCheck::Action;
using ImageCheck::Entry;
using ImageCheck::Row;
using ImageCheck::SimulatedDevice;

/// The lines of the tool's log that name the entry of a row.
std::string linesOf(const Row& row, const fs::path& path) {
  static const std::map<std::string, std::string> reasons = {
      {"RemovedByUser", "[I] The package was manually removed by the user: "},
      {"NotNewer", "[E] The package version is lower than or equal to the version of an already installed package: "},
      {"DeveloperMismatch",
       "[E] Package developer doesn't match with the developer of an already installed package: "}};
  switch (row.action) {
  case Action::Install:
  case Action::Update:
    return installedLine(path);
  case Action::Refused:
    return failedLine(path);
  case Action::Skip:
    return reasons.at(row.reason) + quoted(path) + "\n" + skippedLine(path);
  case Action::Unreadable:
    break;
  }
  return "[E] Failed to read RPM package: " + quoted(path) + "\n" + skippedLine(path);
}

/// The lines that end in one of the paths. The others have reasons of the service and of the reader.
std::string linesAbout(const std::vector<fs::path>& paths, const std::string& log) {
  std::istringstream lines(log);
  std::string text;
  for (std::string line; std::getline(lines, line);) {
    if (std::ranges::any_of(paths, [&](const fs::path& path) { return line.ends_with(": " + quoted(path)); }))
      text += line + "\n";
  }
  return text;
}

/// The real tool and the real service on a bus.
class DeviceHistories : public testing::Test {
protected:
  static void ship(const RealDevice& device, const RandomImage& image) {
    device.clearImage();
    for (const auto& [name, file] : image.files)
      fs::copy_file(file, device.preinstallDirectory() / name);
  }

  /// The entries in the order in which this device lists them.
  static std::vector<Entry> listed(const RealDevice& device, const RandomImage& image) {
    std::vector<Entry> entries;
    for (const fs::path& path : device.entries())
      entries.push_back(*std::ranges::find(image.entries, path.filename().string(), &Entry::name));
    return entries;
  }

  static std::string installedOn(RealDevice& device) {
    std::string text;
    for (ServiceClient::Package& package : device.client().list())
      text += package["general.name"] + " " + package["general.version"] + " " + package["certificate.id"] + "\n";
    return text;
  }

  static std::string registryOf(const RealDevice& device) {
    return fs::exists(device.registry()) ? device.events() : "";
  }

  static std::string registryOf(const SimulatedDevice& device) { return withoutTimestamps(textOf(device.records())); }

  static void boot(RealDevice& real, SimulatedDevice& simulated, const RandomImage& image) {
    ship(real, image);
    std::string expected;
    for (const Row& row : simulated.boot(listed(real, image)))
      expected += linesOf(row, real.preinstallDirectory() / row.entry);
    EXPECT_EQ(linesAbout(real.entries(), real.run().log), expected);
    EXPECT_EQ(installedOn(real), textOf(simulated.state()));
    EXPECT_EQ(registryOf(real), registryOf(simulated));
  }

  static void remove(RealDevice& real, SimulatedDevice& simulated, const std::string& name) {
    if (simulated.installed().contains(name))
      real.client().remove(name);
    simulated.remove(name);
  }

  const Support::RpmSandbox m_rpm;
  PackagePool m_pool{m_rpm};
  const std::uint64_t m_seed = historySeed();
  RandomHistories m_histories{m_pool, m_seed};
};

TEST_F(DeviceHistories, EndOnARealDeviceAsOnTheSimulatedOne) {
  std::cerr << "KRV_HISTORY_SEED=" << m_seed << "\n";
  for (int number = 0; number < 10 && !HasFailure(); ++number) {
    const std::vector<Step> steps = m_histories.next();
    std::string past = "history " + std::to_string(number) + "\n";
    RealDevice real;
    SimulatedDevice simulated;
    for (const Step& step : steps) {
      past += "boot:\n" + step.image.text;
      const testing::ScopedTrace trace(__FILE__, __LINE__, past);
      boot(real, simulated, step.image);
      for (const std::string& name : step.removed) {
        past += "remove " + name + "\n";
        remove(real, simulated, name);
      }
    }
  }
}

} // namespace
