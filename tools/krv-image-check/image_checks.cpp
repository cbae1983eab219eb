// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/image_checks.h"

#include "tools/krv-image-check/elf.h"
#include "tools/krv-image-check/unit.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace ImageCheck {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t longestText = 1024 * 1024;

bool mayBeWrittenByOthers(const struct stat& status, const struct stat& root) {
  const bool isGroupOfOthers = status.st_gid != root.st_gid;
  return (status.st_mode & S_IWOTH) != 0 || (isGroupOfOthers && (status.st_mode & S_IWGRP) != 0) ||
         status.st_uid != root.st_uid;
}

Findings checkDirectory(const ImageTree& image) {
  const auto status = image.status(preInstallDirectory);
  if (!status || !S_ISDIR(status->st_mode))
    return {{.id = "directory-missing",
             .entry = {},
             .message = std::string("the image has no directory ") + preInstallDirectory}};
  Findings findings;
  if (image.list(preInstallDirectory).empty())
    findings.push_back(
        {.id = "directory-empty", .entry = {}, .message = std::string(preInstallDirectory) + " has no entries"});
  fs::path path;
  for (const fs::path& part : fs::path(preInstallDirectory)) {
    path /= part;
    const auto directory = image.status(path);
    if (directory && mayBeWrittenByOthers(*directory, image.rootStatus()))
      findings.push_back({.id = "directory-writable-by-others",
                          .entry = {},
                          .message = "users other than root may write " + path.string(),
                          .about = path.string()});
  }
  return findings;
}

/// Whether a file with this ending in one of the directories has the text.
bool isMentioned(const ImageTree& image, const std::vector<fs::path>& directories, const char* ending,
                 const char* text) {
  return std::ranges::any_of(directories, [&](const fs::path& directory) {
    return std::ranges::any_of(image.list(directory), [&](const std::string& name) {
      if (!name.ends_with(ending))
        return false;
      const auto content = image.read(directory / name, longestText);
      return content && content->find(text) != std::string::npos;
    });
  });
}

Findings checkBus(const ImageTree& image) {
  Findings findings;
  if (!isMentioned(image,
                   {"etc/dbus-1/system-services", "usr/local/share/dbus-1/system-services",
                    "usr/share/dbus-1/system-services", "usr/lib/dbus-1/system-services"},
                   ".service", "Name=velta.KRV"))
    findings.push_back({.id = "service-not-activatable",
                        .entry = {},
                        .message = "no file in usr/share/dbus-1/system-services lets the bus start velta.KRV"});
  if (!isMentioned(image, {"etc/dbus-1/system.d", "usr/local/share/dbus-1/system.d", "usr/share/dbus-1/system.d"},
                   ".conf", "\"velta.KRV\""))
    findings.push_back({.id = "bus-policy-missing",
                        .entry = {},
                        .message = "no file in usr/share/dbus-1/system.d or etc/dbus-1/system.d names velta.KRV"});
  return findings;
}

Findings checkTool(const ImageTree& image) {
  Findings findings;
  const std::optional<std::string> program = toolProgram(image);
  if (!program)
    findings.push_back({.id = "tool-missing", .entry = {}, .message = "the image has no program krv-pre-installer"});
  else if (const std::string reason = whyToolIsNotStarted(image); !reason.empty())
    findings.push_back({.id = "tool-not-enabled", .entry = {}, .message = reason});
  return findings;
}

} // namespace

Findings checkImage(const ImageTree& image) {
  Findings findings = checkDirectory(image);
  for (const auto& more : {checkTool(image), checkBus(image)})
    findings.insert(findings.end(), more.begin(), more.end());
  return findings;
}

std::string architectureOf(const ImageTree& image) {
  static constexpr auto usual =
      std::to_array<const char*>({"usr/sbin/krv-pre-installer", "usr/lib/systemd/systemd", "lib/systemd/systemd",
                                  "sbin/init", "usr/sbin/init", "usr/bin/sh", "bin/sh", "usr/bin/rpm"});
  for (const char* path : usual)
    if (const std::string architecture = architectureOfProgram(image.openFile(path)); !architecture.empty())
      return architecture;
  for (const fs::path directory : {"usr/bin", "usr/sbin", "bin", "sbin", "usr/local/sbin", "usr/local/bin"})
    for (const std::string& name : image.list(directory))
      if (const std::string architecture = architectureOfProgram(image.openFile(directory / name));
          !architecture.empty())
        return architecture;
  return "";
}

} // namespace ImageCheck
