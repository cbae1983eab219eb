// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/diagnostics/captured_log.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/tools/krv-image-check/comparison.h"
#include "tests/tools/krv-image-check/package_pool.h"
#include "tests/tools/krv-image-check/random_history.h"
#include "tests/tools/krv-image-check/real_root.h"
#include "tools/krv-image-check/simulation.h"
#include "tools/krv-image-check/summary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace ImageCheckTest;
using ImageCheck::Entry;
using ImageCheck::ImageContent;
using ImageCheck::Row;
using ImageCheck::SimulatedDevice;

/// Everything by which a device is compared with its simulation.
struct Observation {
  std::string rows;
  std::string installed;
  std::string registry;

  bool operator==(const Observation&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Observation& observation) {
  return stream << "\nrows:\n"
                << observation.rows << "installed:\n"
                << observation.installed << "registry:\n"
                << observation.registry;
}

struct Comparison {
  std::string past;
  Observation planned;
  Observation happened;
};

class Histories : public testing::Test {
protected:
  std::vector<Entry> inOrder(const RandomImage& image) {
    std::vector<Entry> entries = image.entries;
    if (m_histories.below(2) == 0)
      std::ranges::reverse(entries);
    return entries;
  }

  Observation boot(RealRoot& device, const RandomImage& image, const std::vector<Entry>& entries) {
    std::vector<Row> rows;
    for (const Entry& entry : entries)
      rows.push_back(device.take(entry.name, image.files.at(entry.name)));
    for (const Row& row : rows)
      ++m_outcomes[std::string(ImageCheck::nameOf(row.action)) + " " + row.reason];
    return {textOf(rows), device.installed(), device.registry()};
  }

  static Observation boot(SimulatedDevice& device, const std::vector<Entry>& entries) {
    const std::vector<Row> rows = device.boot(entries);
    return {textOf(rows), installedOn(device), textOf(device.records())};
  }

  /// The life of one device, each boot in one of two orders. Returns at the first difference.
  Comparison live(const std::vector<Step>& steps) {
    const Support::CapturedLog log;
    RealRoot real;
    SimulatedDevice simulated;
    Comparison comparison;
    for (const Step& step : steps) {
      comparison.past += "boot:\n" + step.image.text;
      const std::vector<Entry> entries = inOrder(step.image);
      comparison.planned = boot(simulated, entries);
      comparison.happened = boot(real, step.image, entries);
      if (comparison.planned != comparison.happened)
        break;
      for (const std::string& name : step.removed) {
        comparison.past += "remove " + name + "\n";
        simulated.remove(name);
        real.remove(name);
      }
    }
    return comparison;
  }

  const Support::RpmSandbox m_rpm;
  PackagePool m_pool{m_rpm};
  const std::uint64_t m_seed = historySeed();
  const RealRoot m_authorities;
  RandomHistories m_histories{m_pool, m_seed};
  std::map<std::string, std::size_t> m_outcomes; ///< how often each occurred
};

/// Each of these occurs in some thousand boots.
const std::vector<std::string> allOutcomes = {"install NotInstalled",
                                              "refused BadPackageArchitecture",
                                              "refused BadPackageContent",
                                              "refused BadPackageFileFormat",
                                              "refused BadPackageID",
                                              "refused BadPackageVersion",
                                              "refused DowngradeAttempt",
                                              "refused FileConflict",
                                              "refused IllegalDeveloperCertificate",
                                              "skip DeveloperMismatch",
                                              "skip NotNewer",
                                              "skip RemovedByUser",
                                              "unreadable ",
                                              "update Update"};

TEST_F(Histories, EndOnTheSimulatedDeviceAsOnARealOne) {
  const std::uint64_t count = numberFromEnvironment("KRV_HISTORIES", 100);
  std::cerr << "KRV_HISTORY_SEED=" << m_seed << " KRV_HISTORIES=" << count << "\n";
  for (std::uint64_t number = 0; number < count; ++number) {
    const Comparison comparison = live(m_histories.next());
    ASSERT_EQ(comparison.planned, comparison.happened) << "history " << number << ":\n" << comparison.past;
  }
  std::vector<std::string> outcomes;
  for (const auto& [outcome, times] : m_outcomes) {
    std::cerr << times << " times " << outcome << "\n";
    outcomes.push_back(outcome);
  }
  if (count >= 1000) {
    EXPECT_EQ(outcomes, allOutcomes);
  }
}

} // namespace
