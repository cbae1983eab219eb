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
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace ImageCheckTest;
using ImageCheck::Entry;
using ImageCheck::ImageContent;
using ImageCheck::Row;
using ImageCheck::SimulatedDevice;

enum class Order { ByName, Reversed };

std::string sortedLines(const std::string& text) {
  std::istringstream lines(text);
  std::set<std::string> sorted;
  for (std::string line; std::getline(lines, line);)
    sorted.insert(line + "\n");
  return std::accumulate(sorted.begin(), sorted.end(), std::string());
}

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
  static std::vector<Entry> inOrder(const RandomImage& image, Order order) {
    std::vector<Entry> entries = image.entries;
    if (order == Order::Reversed)
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

  /// The plan for the last of `steps` as the image check makes it for the images; nothing if the steps differ from its
  /// scenarios.
  static std::optional<Observation> plan(const std::vector<Step>& steps, const std::vector<Order>& orders) {
    const bool isReversed = orders.back() == Order::Reversed;
    ImageCheck::SimulationInput input{.image = contentOf(steps.back(), ""), .previous = {}, .removed = {}};
    if (steps.size() > 2 || (steps.size() == 2 && orders.front() == Order::Reversed) ||
        (isReversed && !ImageCheck::hasDuplicateNames(input.image)))
      return std::nullopt;
    if (steps.size() == 2) {
      input.previous = {contentOf(steps.front(), "before")};
      input.removed = steps.front().removed;
    }
    const ImageCheck::Simulation simulation = ImageCheck::simulate(input).back();
    const ImageCheck::Scenario& scenario = isReversed ? simulation.reversed : simulation.scenario;
    return Observation{.rows = textOf(scenario.rows), .installed = textOf(scenario.endState), .registry = ""};
  }

  static ImageContent contentOf(const Step& step, const std::string& name) {
    return {.name = name, .entries = step.image.entries};
  }

  /// The life of one device, each boot in one of two orders. Returns at the first difference.
  Comparison live(const std::vector<Step>& steps) {
    const Support::CapturedLog log;
    RealRoot real;
    SimulatedDevice simulated;
    Comparison comparison;
    std::vector<Order> orders;
    for (auto step = steps.begin(); step != steps.end(); ++step) {
      orders.push_back(m_histories.below(2) == 0 ? Order::ByName : Order::Reversed);
      comparison.past += "boot:\n" + step->image.text;
      const std::vector<Entry> entries = inOrder(step->image, orders.back());
      comparison.planned = boot(simulated, entries);
      comparison.happened = boot(real, step->image, entries);
      if (comparison.planned != comparison.happened)
        return comparison;
      if (const std::optional<Observation> plan = Histories::plan({steps.begin(), step + 1}, orders)) {
        ++m_plans;
        comparison.planned = *plan;
        comparison.happened = {
            .rows = sortedLines(comparison.happened.rows), .installed = real.reported(), .registry = ""};
        if (comparison.planned != comparison.happened)
          return comparison;
      }
      for (const std::string& name : step->removed) {
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
  RandomHistories m_histories{m_pool, m_seed};
  std::size_t m_plans = 0;                       ///< how many plans were compared
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
                                              "refused Internal",
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
  EXPECT_GE(m_plans, count / 4);
  std::cerr << m_plans << " plans\n";
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
