// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/simulation.h"

#include <algorithm>
#include <set>
#include <utility>

namespace ImageCheck {

namespace {

std::vector<Entry> byName(std::vector<Entry> entries) {
  std::ranges::sort(entries, {}, &Entry::name);
  return entries;
}

std::vector<Row> rowsWithoutListing(const std::vector<Entry>& entries) {
  std::vector<Row> rows;
  for (const Entry& entry : entries)
    rows.push_back({.entry = entry.name,
                    .name = entry.package ? entry.package->name : "",
                    .action = Action::Skip,
                    .reason = "ListingFailed"});
  return rows;
}

enum class Order { ByName, Reversed };

Scenario boot(SimulatedDevice device, const ImageContent& image, const std::string& name, Order order) {
  std::vector<Entry> entries = byName(image.entries);
  if (order == Order::Reversed)
    std::ranges::reverse(entries);
  std::vector<Row> rows = image.isListable ? device.boot(entries) : rowsWithoutListing(entries);
  std::ranges::sort(rows, {}, &Row::entry);
  return {.name = name, .rows = std::move(rows), .endState = device.state()};
}

Simulation simulateBoot(const SimulatedDevice& device, const SimulationInput& input, const std::string& name,
                        const ImageContent* previous) {
  Simulation simulation{.scenario = boot(device, input.image, name, Order::ByName),
                        .reversed = {},
                        .before = device.state(),
                        .recordsBefore = device.records(),
                        .previous = previous};
  simulation.reversed =
      hasDuplicateNames(input.image) ? boot(device, input.image, name, Order::Reversed) : simulation.scenario;
  return simulation;
}

void removeAll(SimulatedDevice& device, const std::vector<std::string>& names) {
  for (const std::string& name : names)
    device.remove(name);
}

} // namespace

std::vector<Simulation> simulate(const SimulationInput& input) {
  std::vector<Simulation> simulations;
  simulations.push_back(simulateBoot(SimulatedDevice(input.root), input, "first-boot", nullptr));
  for (const ImageContent& previous : input.previous) {
    SimulatedDevice device(input.root);
    if (previous.isListable)
      device.boot(byName(previous.entries));
    removeAll(device, input.removed);
    simulations.push_back(simulateBoot(device, input, "update:" + previous.name, &previous));
  }
  if (input.device) {
    SimulatedDevice device = *input.device;
    removeAll(device, input.removed);
    simulations.push_back(simulateBoot(device, input, "device", nullptr));
  }
  return simulations;
}

bool hasDuplicateNames(const ImageContent& image) {
  std::set<std::string> names;
  return std::ranges::any_of(image.entries, [&](const Entry& entry) {
    return entry.package && entry.package->developer && !names.insert(entry.package->name).second;
  });
}

} // namespace ImageCheck
