// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/packaging/unit.h"

#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"

#include <iomanip>
#include <map>
#include <sstream>

namespace {

using Groups = std::map<std::string, std::vector<std::string>>;

/// systemd-analyze prints the name of each group and, indented below it, its members and comments.
Groups groupsOfSystemCalls() {
  Groups groups;
  std::string group;
  std::istringstream lines(Support::runOrThrow({"systemd-analyze", "--no-pager", "syscall-filter"}));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t begin = line.find_first_not_of(' ');
    if (begin == std::string::npos || line[begin] == '#')
      continue;
    if (begin == 0)
      group = line;
    else
      groups[group].push_back(line.substr(begin));
  }
  return groups;
}

void collect(const Groups& groups, const std::string& name, std::set<std::string>& calls) {
  if (!name.starts_with('@')) {
    calls.insert(name);
    return;
  }
  for (const std::string& member : groups.at(name))
    collect(groups, member, calls);
}

} // namespace

std::filesystem::path unitFile() {
  return std::filesystem::path(KRV_BUILD_DIRECTORY) / "packaging/krv-pre-installer.service";
}

std::vector<std::string> valuesInUnit(const std::string& setting) {
  std::vector<std::string> values;
  std::istringstream lines(Support::readFile(unitFile()));
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(setting + "="))
      continue;
    std::istringstream words(line.substr(setting.size() + 1));
    for (std::string word; words >> std::quoted(word);)
      values.push_back(word);
  }
  return values;
}

std::set<std::string> systemCallsOfUnit() {
  const Groups groups = groupsOfSystemCalls();
  std::set<std::string> calls;
  collect(groups, "@default", calls); // always allowed
  bool isTakenAway = false;
  for (std::string name : valuesInUnit("SystemCallFilter")) {
    if (name.starts_with('~')) {
      isTakenAway = true;
      name.erase(0, 1);
    }
    std::set<std::string> named;
    collect(groups, name, named);
    if (isTakenAway)
      std::erase_if(calls, [&](const std::string& call) { return named.contains(call); });
    else
      calls.merge(named);
  }
  return calls;
}
