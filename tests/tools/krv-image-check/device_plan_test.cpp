// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/temp_directory.h"
#include "tests/tools/krv-image-check/comparison.h"
#include "tests/tools/krv-image-check/package_pool.h"
#include "tests/tools/krv-image-check/random_history.h"
#include "tests/tools/krv-image-check/real_root.h"
#include "tools/krv-image-check/read_device.h"
#include "tools/krv-image-check/simulation.h"

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace ImageCheckTest;
using ImageCheck::Entry;
using ImageCheck::Row;

struct Outcome {
  std::string rows;
  std::string state;

  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  return stream << "\nrows:\n" << outcome.rows << "state:\n" << outcome.state;
}

/// Devices that are read from their file tree before they boot their last image.
class DevicePlans : public testing::Test {
protected:
  static std::string boot(RealRoot& device, const RandomImage& image) {
    std::vector<Row> rows;
    for (const Entry& entry : image.entries)
      rows.push_back(device.take(entry.name, image.files.at(entry.name)));
    return textOf(rows);
  }

  static void remove(RealRoot& device, const std::vector<std::string>& names) {
    for (const std::string& name : names)
      device.remove(name);
  }

  static Outcome planFor(const RealRoot& device, const RandomImage& image, const std::vector<std::string>& removed) {
    const Support::TempDirectory folder;
    const auto everything = [](const std::string&) { return true; };
    ImageCheck::SimulationInput input{.image = {.name = "", .entries = image.entries},
                                      .previous = {},
                                      .removed = removed,
                                      .device = ImageCheck::readDevice(device.path(), folder / "database", everything)};
    const ImageCheck::Scenario scenario = ImageCheck::simulate(input).back().scenario;
    EXPECT_EQ(scenario.name, "device");
    return {textOf(scenario.rows), textOf(scenario.endState)};
  }

  const Support::RpmSandbox m_rpm;
  PackagePool m_pool{m_rpm};
  const std::uint64_t m_seed = historySeed();
  RandomHistories m_histories{m_pool, m_seed};
};

TEST_F(DevicePlans, AreWhatTheDeviceDoesNext) {
  std::cerr << "KRV_HISTORY_SEED=" << m_seed << "\n";
  for (int number = 0; number < 20; ++number) {
    const std::vector<Step> steps = m_histories.next();
    std::string past;
    Outcome planned;
    Outcome happened;
    {
      const Support::CapturedLog log;
      RealRoot device;
      for (const Step& step : steps) {
        past += "boot:\n" + step.image.text;
        if (&step == &steps.back())
          break;
        boot(device, step.image);
        if (&step + 1 != &steps.back())
          remove(device, step.removed);
      }
      // The user removes the last ones only after the device was read.
      const std::vector<std::string> removed =
          steps.size() > 1 ? (steps.end() - 2)->removed : std::vector<std::string>();
      planned = planFor(device, steps.back().image, removed);
      remove(device, removed);
      const std::string rows = boot(device, steps.back().image);
      happened = {rows, device.reported()};
    }
    ASSERT_EQ(planned, happened) << past;
  }
}

} // namespace
