// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/scan.h"

#include "common/rpm/configuration.h"
#include "tools/krv-image-check/image_checks.h"
#include "tools/krv-image-check/wire.h"
#include "tools/krv-image-check/workers.h"

namespace ImageCheck {

namespace {

/// Sets the folder once in each process: librpm keeps every setting.
void useDatabase(const std::filesystem::path& folder) {
  static bool isSet = false;
  if (!isSet)
    Common::Rpm::setDatabaseFolder(folder);
  isSet = true;
}

} // namespace

std::vector<EntryReport> readEntries(const PackageContext& context, unsigned jobs,
                                     const std::function<void(std::size_t done, std::size_t all)>& progress) {
  const std::vector<std::string> names = context.image.list(preInstallDirectory);
  const std::vector<std::optional<std::string>> answers =
      doInWorkers({.count = names.size(),
                   .jobs = jobs,
                   .work =
                       [&](std::size_t index) {
                         useDatabase(context.database);
                         return pack(readEntry(context, names[index]));
                       },
                   .progress = [&](std::size_t done) { progress(done, names.size()); }});
  std::vector<EntryReport> reports;
  for (std::size_t index = 0; index < names.size(); ++index) {
    if (answers[index])
      reports.push_back(unpackEntry(*answers[index]));
    else
      reports.push_back({.entry = {.name = names[index], .package = {}},
                         .findings = {{.id = "header-damaged",
                                       .entry = names[index],
                                       .message = "reading the package ends the process that reads it"}}});
  }
  return reports;
}

} // namespace ImageCheck
