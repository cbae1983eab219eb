// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/machine.h"

#include "common/rpm/configuration.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmmacro.h>

#include <fstream>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

namespace Common::Rpm {

namespace {

using Compatibility = std::map<std::string, std::vector<std::string>>;

/// The lines "arch_compat: ARCHITECTURE: COMPATIBLE..." of librpm's rpmrc.
Compatibility readCompatibility() {
  Compatibility compatibility;
  std::ifstream file(std::string(rpmConfigDir()) + "/rpmrc");
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string key;
    std::string architecture;
    if (!(words >> key >> architecture) || key != "arch_compat:" || !architecture.ends_with(':'))
      continue;
    architecture.pop_back();
    for (std::string other; words >> other;)
      compatibility[architecture].push_back(other);
  }
  return compatibility;
}

void addWithCompatible(const std::string& architecture, const Compatibility& compatibility,
                       std::set<std::string>& found) {
  if (!found.insert(architecture).second)
    return;
  const auto entry = compatibility.find(architecture);
  if (entry == compatibility.end())
    return;
  for (const std::string& other : entry->second)
    addWithCompatible(other, compatibility, found);
}

} // namespace

Machine::Machine(std::optional<std::set<std::string>> architectures) : m_architectures(std::move(architectures)) {}

Machine Machine::current() {
  ensureRpmConfig();
  return Machine(std::nullopt);
}

std::optional<Machine> Machine::ofArchitecture(const std::string& architecture) {
  const Compatibility compatibility = readCompatibility();
  if (!compatibility.contains(architecture))
    return std::nullopt;
  std::set<std::string> found;
  addWithCompatible(architecture, compatibility, found);
  return Machine(std::move(found));
}

bool Machine::runs(const std::string& architecture) const {
  return m_architectures ? m_architectures->contains(architecture)
                         : rpmMachineScore(RPM_MACHTABLE_INSTARCH, architecture.c_str()) > 0;
}

} // namespace Common::Rpm
