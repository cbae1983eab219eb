// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/together.h"

#include "common/error/error.h"
#include "common/rpm/configuration.h"
#include "common/rpm/dependency_check.h"
#include "common/text/printable.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/image_checks.h"
#include "tools/krv-image-check/wire.h"
#include "tools/krv-image-check/workers.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

namespace ImageCheck {

namespace {

using Common::Rpm::DependencyCheck;
using Common::Rpm::Reader;
using Problem = DependencyCheck::Problem;

std::map<std::size_t, Reader> openPackages(const ImageTree& image, const std::vector<EntryReport>& entries) {
  std::map<std::size_t, Reader> packages;
  for (std::size_t number = 0; number < entries.size(); ++number) {
    const Entry& entry = entries[number].entry;
    const auto file = entry.package ? image.openFile(std::filesystem::path(preInstallDirectory) / entry.name)
                                    : Common::Posix::FileDescriptor();
    try {
      if (file)
        packages.emplace(number, Reader(pathOf(file)));
    } catch (const Common::Error&) {
    }
  }
  return packages;
}

/// The problems that a package has without the other packages of the directory.
std::set<Problem> problemsAlone(DependencyCheck& check, const Reader& package, std::size_t number) {
  check.clear();
  check.add(package, number);
  const std::vector<Problem> problems = check.problems();
  return {problems.begin(), problems.end()};
}

Finding describe(const Problem& problem, const std::string& entry, bool isOnlyOrder) {
  const std::string other = Common::printable(problem.other);
  if (problem.kind == Problem::Kind::Conflict)
    return {.id = "conflict-declared", .entry = entry, .message = "it conflicts with " + other, .about = problem.other};
  if (isOnlyOrder)
    return {.id = "dependency-order",
            .entry = entry,
            .message = "only another package of the directory provides " + other,
            .about = problem.other};
  return {.id = "dependency-missing", .entry = entry, .message = "nothing provides " + other, .about = problem.other};
}

Findings dependencyFindings(const ImageTree& image, const std::vector<EntryReport>& entries) {
  const std::map<std::size_t, Reader> packages = openPackages(image, entries);
  DependencyCheck together;
  DependencyCheck ofOne;
  std::set<Problem> alone;
  for (const auto& [number, package] : packages) {
    together.add(package, number);
    alone.merge(problemsAlone(ofOne, package, number));
  }
  const std::vector<Problem> list = together.problems();
  const std::set<Problem> problems(list.begin(), list.end());
  Findings findings;
  for (const Problem& problem : problems)
    findings.push_back(describe(problem, entries[problem.package].entry.name, false));
  for (const Problem& problem : alone)
    if (!problems.contains(problem) && problem.kind == Problem::Kind::Missing)
      findings.push_back(describe(problem, entries[problem.package].entry.name, true));
  return findings;
}

} // namespace

Findings checkDependencies(const ImageTree& image, const std::vector<EntryReport>& entries,
                           const std::filesystem::path& database) {
  const auto work = [&](std::size_t) {
    Common::Rpm::setDatabaseFolder(database);
    const int errors = Common::Rpm::reportedErrors();
    const Findings findings = dependencyFindings(image, entries);
    if (Common::Rpm::reportedErrors() != errors)
      throw std::runtime_error("the RPM database is damaged");
    return pack(findings);
  };
  const std::optional<std::string> answer = doInWorkers({.count = 1, .jobs = 1, .work = work}).front();
  if (answer)
    return unpackFindings(*answer);
  return {{.id = "check-skipped", .entry = {}, .message = "RPM cannot check the dependencies of the packages"}};
}

Findings checkFileConflicts(const Scenario& firstBoot, const std::vector<EntryReport>& entries) {
  Findings findings;
  for (const Row& row : firstBoot.rows) {
    const auto report =
        std::ranges::find(entries, row.entry, [](const EntryReport& entry) { return entry.entry.name; });
    // A reserved path is refused with the same error and has a finding of its own.
    const bool isReserved =
        std::ranges::find(report->findings, "path-reserved", &Finding::id) != report->findings.end();
    if (row.action == Action::Refused && row.reason == "FileConflict" && !isReserved)
      findings.push_back({.id = "file-conflict", .entry = row.entry, .message = Common::printable(row.detail)});
  }
  return findings;
}

Findings checkSpace(const std::vector<EntryReport>& entries, std::uint64_t space) {
  std::uint64_t needed = 0;
  for (const EntryReport& report : entries)
    needed = __builtin_add_overflow(needed, report.installedSize, &needed) ? UINT64_MAX : needed;
  if (needed <= space)
    return {};
  return {{.id = "space-exceeded",
           .entry = {},
           .message = "the files of all packages need " + std::to_string(needed) + " bytes, and " +
                      std::to_string(space) + " are free",
           .data = {{"free", std::to_string(space)}, {"needed", std::to_string(needed)}}}};
}

} // namespace ImageCheck
