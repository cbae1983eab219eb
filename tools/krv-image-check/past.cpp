// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/past.h"

#include "common/rpm/version.h"
#include "common/signatures/developer_identity.h"
#include "common/text/printable.h"
#include "tools/krv-image-check/escape.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>
#include <utility>

namespace ImageCheck {

namespace {

using Common::Rpm::VersionComparison;
using Core::KRV::RegistryRecord;

template <typename Items>
auto findNamed(Items& items, const std::string& name) {
  const auto found = std::ranges::find_if(items, [&](const auto& item) { return item.name == name; });
  return found == items.end() ? nullptr : &*found;
}

bool isReadable(const Entry& entry) {
  return entry.package && entry.package->developer;
}

/// The readable packages of an image by their names, each name's in the order of the entries.
std::map<std::string, std::vector<const Package*>> packagesByName(const ImageContent& image) {
  std::map<std::string, std::vector<const Package*>> packages;
  for (const Entry& entry : image.entries) {
    if (isReadable(entry))
      packages[entry.package->name].push_back(&*entry.package);
  }
  for (auto& [name, sameName] : packages)
    std::ranges::sort(sameName, {}, &Package::entry);
  return packages;
}

/// Merges what several scenarios say about one package into one finding.
class Findings {
public:
  void add(const std::string& id, const std::optional<std::string>& entry, const std::string& package,
           const std::string& message, const std::string& scenario) {
    auto& [finding, scenarios] = m_findings[{id, entry.value_or(""), package}];
    if (finding.id.empty())
      finding = {.id = id, .entry = entry, .message = message, .about = package};
    scenarios.push_back(utf8(scenario));
  }

  std::vector<Finding> take() {
    std::vector<Finding> findings;
    for (auto& [key, merged] : m_findings) {
      auto& [finding, scenarios] = merged;
      finding.data = {{"package", nlohmann::json(utf8(finding.about)).dump()},
                      {"scenarios", nlohmann::json(scenarios).dump()}};
      findings.push_back(std::move(finding));
    }
    return findings;
  }

private:
  std::map<std::tuple<std::string, std::string, std::string>, std::pair<Finding, std::vector<std::string>>> m_findings;
};

std::string stateText(const InstalledState* state, const std::string& name) {
  return state == nullptr ? "without " + Common::printable(name)
                          : "with " + Common::printable(name) + " " + Common::printable(state->version);
}

std::string outcomeText(const Simulation& simulation, const std::vector<const Package*>& packages) {
  const std::string& name = packages.front()->name;
  const std::string byName = stateText(findNamed(simulation.scenario.endState, name), name);
  const std::string reversed = stateText(findNamed(simulation.reversed.endState, name), name);
  if (byName == reversed)
    return "A device ends " + byName + ", whichever comes first";
  return "A device ends " + byName + " if it takes " + Common::printable(packages.front()->entry) + " first, and " +
         reversed + " if it takes " + Common::printable(packages.back()->entry) + " first";
}

/// The outcomes with the scenarios that have them, in the order of the scenarios.
std::string outcomesText(const std::vector<Simulation>& simulations, const std::vector<const Package*>& packages) {
  std::vector<std::pair<std::string, std::string>> outcomes;
  for (const Simulation& simulation : simulations) {
    const std::string outcome = outcomeText(simulation, packages);
    const std::string scenario = Common::printable(simulation.scenario.name);
    const auto same = std::ranges::find(outcomes, outcome, [](const auto& known) { return known.first; });
    if (same == outcomes.end())
      outcomes.emplace_back(outcome, scenario);
    else
      same->second += ", " + scenario;
  }
  std::string text;
  for (const auto& [outcome, scenarios] : outcomes)
    text += " " + outcome + " (" + scenarios + ").";
  return text;
}

void findDuplicates(const ImageContent& image, const std::vector<Simulation>& simulations, Findings& findings) {
  for (const auto& [name, packages] : packagesByName(image)) {
    if (packages.size() == 1)
      continue;
    std::string message = "these entries are packages with the name " + Common::printable(name) + ":";
    for (const Package* package : packages)
      message += (package == packages.front() ? " " : ", ") + Common::printable(package->entry);
    message += "." + outcomesText(simulations, packages);
    for (const Simulation& simulation : simulations)
      findings.add("duplicate-name", packages.front()->entry, name, message, simulation.scenario.name);
  }
}

bool isDowngrade(const Row& row, const Package& package, const InstalledState& installed) {
  return row.reason == "DowngradeAttempt" ||
         (row.reason == "NotNewer" &&
          Common::Rpm::compareVersions(installed.version, package.version) == VersionComparison::Newer);
}

bool isForeign(const Row& row, const Package& package, const InstalledState& installed) {
  const Common::DeveloperIdentity& developer = package.developer->identity;
  return (row.reason == "DeveloperMismatch" || row.reason == "DeveloperKeySuperseded") &&
         !Common::isOwnOrEarlierKey(installed.keyId, developer.keyId, developer.previousKeyIds);
}

/// Enough of a key id to recognise it.
std::string keyText(const std::string& key) {
  constexpr std::size_t length = 16;
  return Common::printable(key.substr(0, length));
}

std::vector<std::string> keysOf(std::string own, std::vector<std::string> earlier) {
  earlier.push_back(std::move(own));
  return earlier;
}

bool contains(const std::vector<std::string>& keys, const std::string& key) {
  return std::ranges::find(keys, key) != keys.end();
}

/// Whether a device in one of the scenarios has the package with a rotation from `key` to one of the package's keys.
bool isLinked(const Package& package, const std::string& key, const std::vector<Simulation>& simulations) {
  const Common::DeveloperIdentity& developer = package.developer->identity;
  const std::vector<std::string> own = keysOf(developer.keyId, developer.previousKeyIds);
  return std::ranges::any_of(simulations, [&](const Simulation& simulation) {
    const InstalledState* const state = findNamed(simulation.before, package.name);
    if (state == nullptr)
      return false;
    const std::vector<std::string> keys = keysOf(state->keyId, state->previousKeyIds);
    return contains(keys, key) &&
           std::ranges::any_of(own, [&](const std::string& mine) { return contains(keys, mine); });
  });
}

/// Whether the package rotates keys, and its certificate names the developer who has signed the installed package.
bool isRotationOfTheSame(const Package& package, const std::string& key, const Simulation& simulation) {
  if (simulation.previous == nullptr || package.developer->identity.previousKeyIds.empty())
    return false;
  return std::ranges::any_of(simulation.previous->entries, [&](const Entry& entry) {
    return isReadable(entry) && entry.package->name == package.name &&
           entry.package->developer->identity.keyId == key &&
           entry.package->developer->subject == package.developer->subject &&
           entry.package->developer->issuer == package.developer->issuer;
  });
}

/// Returns an earlier key of the installed package that the new package does not name, or null.
const std::string* droppedKey(const Package& package, const InstalledState& installed) {
  const Common::DeveloperIdentity& developer = package.developer->identity;
  if (!Common::isOwnOrEarlierKey(installed.keyId, developer.keyId, developer.previousKeyIds))
    return nullptr;
  const auto dropped = std::ranges::find_if(installed.previousKeyIds, [&](const std::string& key) {
    return !Common::isOwnOrEarlierKey(key, developer.keyId, developer.previousKeyIds);
  });
  return dropped == installed.previousKeyIds.end() ? nullptr : &*dropped;
}

/// Compares packages with what devices have before they boot the image.
class Comparison {
public:
  Comparison(const SimulationInput& input, const std::vector<Simulation>& simulations, Findings& findings)
      : m_input(input), m_simulations(simulations), m_findings(findings), m_packages(packagesByName(input.image)) {}

  void compare(const Simulation& simulation) {
    for (const Row& row : simulation.scenario.rows) {
      const Entry* const entry = findNamed(m_input.image.entries, row.entry);
      if (entry != nullptr && isReadable(*entry))
        compare(simulation, row, *entry->package);
    }
    findDropped(simulation);
  }

private:
  void compare(const Simulation& simulation, const Row& row, const Package& package) {
    const InstalledState* const installed = findNamed(simulation.before, package.name);
    if (installed != nullptr && isDowngrade(row, package, *installed))
      add("downgrade", simulation, package,
          "the device has " + Common::printable(installed->version) + ", the image has " +
              Common::printable(package.version));
    if (installed != nullptr)
      compareDevelopers(simulation, row, package, *installed);
    findRebuilt(simulation, package);
    if (row.action == Action::Install && installed == nullptr)
      findReturn(simulation, package);
  }

  void compareDevelopers(const Simulation& simulation, const Row& row, const Package& package,
                         const InstalledState& installed) {
    const std::string& key = installed.keyId;
    const std::string* const dropped = droppedKey(package, installed);
    if (dropped != nullptr)
      return add("rotation-shortened", simulation, package,
                 "the device knows the earlier key " + keyText(*dropped) + ", which this package no longer names");
    if (!isForeign(row, package, installed))
      return;
    if (isLinked(package, key, m_simulations) || isRotationOfTheSame(package, key, simulation))
      return add("rotation-shortened", simulation, package,
                 "the device has a package signed with the key " + keyText(key) +
                     ", which is not among the earlier keys of this one");
    add("developer-changed", simulation, package,
        "the device has a package signed with the key " + keyText(key) + ", this one is signed with " +
            keyText(package.developer->identity.keyId));
  }

  void findRebuilt(const Simulation& simulation, const Package& package) {
    if (simulation.previous == nullptr)
      return;
    bool isOther = false;
    for (const Entry& entry : simulation.previous->entries) {
      if (!isReadable(entry) || entry.package->refusal || entry.package->name != package.name ||
          entry.package->fullVersion != package.fullVersion)
        continue;
      if (entry.package->sha256 == package.sha256)
        return;
      isOther = true;
    }
    if (isOther)
      add("rebuilt-same-version", simulation, package,
          "the earlier image has other bytes as " + Common::printable(package.name) + " " +
              Common::printable(package.version));
  }

  void findReturn(const Simulation& simulation, const Package& package) {
    const auto isRemoval = [&](const RegistryRecord& record) {
      return record.event == RegistryRecord::Event::Remove && record.packageId == package.name;
    };
    const auto removal = std::ranges::find_if(simulation.recordsBefore, isRemoval);
    if (removal != simulation.recordsBefore.end())
      add("removed-returns", simulation, package,
          "the user removed a package that was signed with the key " + keyText(removal->keyId) +
              ", this one is signed with " + keyText(package.developer->identity.keyId));
  }

  /// A package of unknown developer belongs to the system and not to the tool.
  void findDropped(const Simulation& simulation) {
    for (const InstalledState& installed : simulation.before) {
      if (!m_packages.contains(installed.name) && !installed.keyId.empty())
        m_findings.add("package-dropped", std::nullopt, installed.name,
                       "devices have " + Common::printable(installed.name) + " " +
                           Common::printable(installed.version) + ", and the image has no package of that name",
                       simulation.scenario.name);
    }
  }

  void add(const std::string& id, const Simulation& simulation, const Package& package, const std::string& message) {
    m_findings.add(id, package.entry, package.name, message + " (" + Common::printable(simulation.scenario.name) + ")",
                   simulation.scenario.name);
  }

  const SimulationInput& m_input;
  const std::vector<Simulation>& m_simulations;
  Findings& m_findings;
  std::map<std::string, std::vector<const Package*>> m_packages;
};

} // namespace

std::vector<Finding> findingsAboutThePast(const SimulationInput& input, const std::vector<Simulation>& simulations) {
  Findings findings;
  findDuplicates(input.image, simulations, findings);
  Comparison comparison(input, simulations, findings);
  for (const Simulation& simulation : simulations)
    comparison.compare(simulation);
  return findings.take();
}

std::vector<NotChecked> unknownDevelopers(const std::vector<Simulation>& simulations) {
  std::vector<NotChecked> notChecked;
  for (const Simulation& simulation : simulations) {
    for (const Row& row : simulation.scenario.rows) {
      if (row.reason == "DeveloperUnknown")
        notChecked.push_back({.id = "developer-changed",
                              .why = "the registry of the device has no record of " + Common::printable(row.name) +
                                     ", so its developer is unknown"});
    }
  }
  return notChecked;
}

} // namespace ImageCheck
