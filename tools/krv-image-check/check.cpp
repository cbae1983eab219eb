// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/check.h"

#include "common/rpm/configuration.h"
#include "tools/krv-image-check/authorities.h"
#include "tools/krv-image-check/database.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/image_checks.h"
#include "tools/krv-image-check/image_tree.h"
#include "tools/krv-image-check/past.h"
#include "tools/krv-image-check/read_device.h"
#include "tools/krv-image-check/root_entry.h"
#include "tools/krv-image-check/scan.h"
#include "tools/krv-image-check/simulation.h"
#include "tools/krv-image-check/temp_folder.h"
#include "tools/krv-image-check/together.h"
#include "tools/krv-image-check/waivers.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace ImageCheck {

namespace {

using namespace std::chrono;

void append(Findings& findings, const Findings& more) {
  findings.insert(findings.end(), more.begin(), more.end());
}

unsigned jobsOf(const Options& options) {
  return options.jobs != 0 ? options.jobs : std::max(1U, std::thread::hardware_concurrency());
}

sys_days today() {
  return floor<days>(system_clock::now());
}

ImageContent contentOf(const std::string& name, const std::vector<EntryReport>& reports) {
  ImageContent content{.name = name, .entries = {}};
  for (const EntryReport& report : reports) {
    content.entries.push_back(report.entry);
    content.isListable = content.isListable && !report.breaksListing;
  }
  return content;
}

/// Collects what one run finds.
class Check {
public:
  Check(const Options& options, const Progress& progress)
      : m_options(options), m_progress(progress), m_image(options.image),
        m_waivers(options.waivers ? readWaivers(*options.waivers) : std::vector<Waiver>()) {
    m_report.image = options.image;
    m_report.at = options.at.value_or(today());
  }

  Report run() {
    findMachine();
    append(m_report.findings, checkImage(m_image));
    const std::string noDatabase = copyDatabase(m_image, m_folder / "rpm");
    Common::Rpm::configureForOtherSystem(m_folder / "rpm");
    readImage();
    simulateBoots();
    checkTogether(noDatabase);
    if (!m_options.deep)
      skip("payload-damaged", "--deep is not given");
    applyWaivers(m_waivers, m_report.at, m_report.findings);
    sortFindings(m_report.findings);
    return std::move(m_report);
  }

private:
  void skip(const char* id, const std::string& why) { m_report.notChecked.push_back({.id = id, .why = why}); }

  void findMachine() {
    m_report.architecture = m_options.architecture.value_or(architectureOf(m_image));
    if (m_report.architecture.empty())
      return skip("architecture-foreign", "nothing tells the architecture of the device; --arch does");
    m_machine = Common::Rpm::Machine::ofArchitecture(m_report.architecture);
    if (!m_machine)
      throw UsageError("RPM does not know the architecture " + m_report.architecture);
  }

  PackageContext context(const ImageTree& image, const std::string& folder, bool hasAuthorities) const {
    return {.image = image,
            .machine = m_machine,
            .caPath = m_folder / ("trusted-ca" + folder),
            .hasAuthorities = hasAuthorities,
            .database = m_folder / ("rpm" + folder),
            // A certificate that ends on the day counts as ended, and one that begins on it as valid.
            .at = m_report.at + days(1) - seconds(1),
            .areDatesChecked = folder.empty(),
            .expiryMargin = m_options.expiryMargin,
            .deep = m_options.deep && folder.empty()};
  }

  void readImage() {
    const Authorities authorities = copyAuthorities(m_image, m_options.caPath, m_folder / "trusted-ca");
    append(m_report.findings, authorities.findings);
    if (!authorities.areUsable)
      skip("signer-untrusted", "there are no trusted authorities");
    m_entries = readEntries(context(m_image, "", authorities.areUsable), jobsOf(m_options), m_progress);
    for (const EntryReport& report : m_entries) {
      append(m_report.findings, report.findings);
      if (report.entry.package)
        m_report.packages.push_back(*report.entry.package);
    }
  }

  /// Its findings are not those of the image.
  ImageContent readPrevious(const std::string& path, const std::string& folder) {
    const ImageTree tree(path);
    const Authorities authorities = copyAuthorities(tree, std::nullopt, m_folder / ("trusted-ca" + folder));
    copyDatabase(tree, m_folder / ("rpm" + folder));
    return contentOf(path, readEntries(context(tree, folder, authorities.areUsable), jobsOf(m_options),
                                       [](std::size_t, std::size_t) {}));
  }

  bool isOffered(const std::string& name) const {
    return std::ranges::any_of(m_report.packages, [&](const Package& package) { return package.name == name; });
  }

  void simulateBoots() {
    SimulationInput input{.image = contentOf(m_options.image, m_entries),
                          .previous = {},
                          .removed = m_options.removed,
                          .root = [this](const std::filesystem::path& path) { return rootEntry(m_image, path); }};
    for (const std::string& path : m_options.previous)
      input.previous.push_back(readPrevious(path, "-" + std::to_string(input.previous.size())));
    if (m_options.device)
      input.device = readDevice(*m_options.device, m_folder / "rpm-of-device",
                                [this](const std::string& name) { return isOffered(name); });
    for (Simulation& simulation : simulate(input))
      m_report.scenarios.push_back(std::move(simulation.scenario));
    // A dangling link must not hide the other mistakes until it is repaired.
    input.image.isListable = true;
    judge(input, simulate(input));
  }

  void judge(const SimulationInput& input, const std::vector<Simulation>& simulations) {
    append(m_report.findings, findingsAboutThePast(input, simulations));
    append(m_report.findings, checkFileConflicts(simulations.front().scenario, m_entries));
    for (NotChecked& unknown : unknownDevelopers(simulations))
      m_report.notChecked.push_back(std::move(unknown));
  }

  void checkTogether(const std::string& noDatabase) {
    if (noDatabase.empty())
      append(m_report.findings, checkDependencies(m_image, m_entries, m_folder / "rpm"));
    else
      for (const char* id : {"dependency-missing", "dependency-order", "conflict-declared"})
        skip(id, noDatabase);
    if (m_options.space)
      append(m_report.findings, checkSpace(m_entries, *m_options.space));
    else
      skip("space-exceeded", "--space is not given");
  }

  const Options& m_options;
  const Progress& m_progress;
  const ImageTree m_image;
  const TempFolder m_folder;
  const std::vector<Waiver> m_waivers;
  std::optional<Common::Rpm::Machine> m_machine;
  std::vector<EntryReport> m_entries;
  Report m_report{};
};

} // namespace

Report check(const Options& options, const Progress& progress) {
  return Check(options, progress).run();
}

} // namespace ImageCheck
