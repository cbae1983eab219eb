// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/unit.h"

#include <algorithm>
#include <array>
#include <map>
#include <sstream>

#include <fnmatch.h>

namespace ImageCheck {

namespace {

namespace fs = std::filesystem;

constexpr const char* unitName = "krv-pre-installer.service";
constexpr std::size_t longestText = 1024 * 1024;

/// In the order in which systemd looks for units; a unit in an earlier folder replaces the others.
constexpr auto unitFolders = std::to_array<const char*>(
    {"etc/systemd/system", "usr/local/lib/systemd/system", "usr/lib/systemd/system", "lib/systemd/system"});

constexpr auto presetFolders =
    std::to_array<const char*>({"etc/systemd/system-preset", "usr/local/lib/systemd/system-preset",
                                "usr/lib/systemd/system-preset", "lib/systemd/system-preset"});

struct Unit {
  bool isMasked;
  std::string text;
};

std::optional<Unit> findUnit(const ImageTree& image) {
  for (const fs::path folder : unitFolders) {
    const auto status = image.status(folder / unitName);
    if (status)
      return Unit{.isMasked = !S_ISREG(status->st_mode) || status->st_size == 0,
                  .text = image.read(folder / unitName, longestText).value_or("")};
    // The target /dev/null does not exist in an image without devices.
    const auto own = image.ownStatus(folder / unitName);
    if (own && S_ISLNK(own->st_mode))
      return Unit{.isMasked = true, .text = ""};
  }
  return std::nullopt;
}

/// The program that the unit starts; empty if it does not say.
std::string startedProgram(const std::string& unit) {
  std::istringstream lines(unit);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("ExecStart="))
      continue;
    const std::size_t begin = line.find('/');
    return begin == std::string::npos ? "" : line.substr(begin, line.find_first_of(" \"'", begin) - begin);
  }
  return "";
}

bool isProgram(const ImageTree& image, const std::string& path) {
  const auto status = image.status(path);
  return status && S_ISREG(status->st_mode) && (status->st_mode & 0111) != 0;
}

/// Whether a link to the unit makes another unit start it.
bool isWanted(const ImageTree& image) {
  return std::ranges::any_of(unitFolders, [&](const fs::path folder) {
    return std::ranges::any_of(image.list(folder), [&](const std::string& name) {
      return (name.ends_with(".wants") || name.ends_with(".requires")) && image.ownStatus(folder / name / unitName);
    });
  });
}

/// Whether systemd applies presets at the next boot, see machine-id(5).
bool isBeforeFirstBoot(const ImageTree& image) {
  const auto machineId = image.read("etc/machine-id", longestText);
  return !machineId || machineId->starts_with("uninitialized");
}

/// Whether a preset file enables the unit. As in systemd, the first line whose pattern matches the unit decides; no
/// value if no line does.
std::optional<bool> presetIn(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string command;
    std::string pattern;
    if (words >> command >> pattern && (command == "enable" || command == "disable") &&
        fnmatch(pattern.c_str(), unitName, 0) == 0)
      return command == "enable";
  }
  return std::nullopt;
}

/// As systemd does: the files of all folders by name, an earlier folder replaces a file of the same name, the first
/// line counts, and without one the unit is enabled.
bool isEnabledByPreset(const ImageTree& image) {
  std::map<std::string, fs::path> files;
  for (const fs::path folder : presetFolders)
    for (const std::string& name : image.list(folder))
      if (name.ends_with(".preset"))
        files.emplace(name, folder / name);
  for (const auto& [name, path] : files)
    if (const std::optional<bool> isEnabled = presetIn(image.read(path, longestText).value_or("")))
      return *isEnabled;
  return true;
}

} // namespace

std::optional<std::string> toolProgram(const ImageTree& image) {
  const std::optional<Unit> unit = findUnit(image);
  if (unit) {
    const std::string program = startedProgram(unit->text);
    if (!program.empty())
      return isProgram(image, program) ? std::optional(program) : std::nullopt;
  }
  for (const char* folder : {"/usr/sbin", "/usr/bin", "/usr/local/sbin", "/sbin"}) {
    const std::string program = std::string(folder) + "/krv-pre-installer";
    if (isProgram(image, program))
      return program;
  }
  return std::nullopt;
}

std::string whyToolIsNotStarted(const ImageTree& image) {
  const std::optional<Unit> unit = findUnit(image);
  if (!unit)
    return std::string("the image has no unit ") + unitName;
  if (unit->isMasked)
    return std::string(unitName) + " is masked";
  if (isWanted(image))
    return "";
  if (!isBeforeFirstBoot(image))
    return std::string("no unit wants ") + unitName +
           ", and the image has a machine id, so presets are not applied at its first boot";
  return isEnabledByPreset(image) ? "" : std::string("no unit wants ") + unitName + ", and a preset disables it";
}

} // namespace ImageCheck
