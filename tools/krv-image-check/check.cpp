// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/check.h"

#include "common/rpm/configuration.h"
#include "tools/krv-image-check/authorities.h"
#include "tools/krv-image-check/database.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/image_checks.h"
#include "tools/krv-image-check/image_tree.h"
#include "tools/krv-image-check/scan.h"
#include "tools/krv-image-check/simulation.h"
#include "tools/krv-image-check/temp_folder.h"

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

/// Collects what one run finds.
class Check {
public:
  Check(const Options& options, const Progress& progress)
      : m_options(options), m_progress(progress), m_image(options.image) {}

  Report run() {
    m_report.image = m_options.image;
    m_report.at = m_options.at.value_or(today());
    const std::optional<Common::Rpm::Machine> machine = findMachine();
    append(m_report.findings, checkImage(m_image));
    const Authorities authorities = copyAuthorities(m_image, m_options.caPath, m_folder / "trusted-ca");
    append(m_report.findings, authorities.findings);
    if (!authorities.areUsable)
      m_report.notChecked.push_back({.id = "signer-untrusted", .why = "there are no trusted authorities"});
    const std::string noDatabase = copyDatabase(m_image, m_folder / "rpm");
    Common::Rpm::configureForOtherSystem(m_folder / "rpm");
    const PackageContext context{.image = m_image,
                                 .machine = machine,
                                 .caPath = m_folder / "trusted-ca",
                                 .hasAuthorities = authorities.areUsable,
                                 // Certificates that begin or end on the day are valid and not valid on it.
                                 .at = m_report.at + days(1) - seconds(1),
                                 .expiryMargin = m_options.expiryMargin,
                                 .deep = m_options.deep};
    take(readEntries(context, jobsOf(m_options), m_progress));
    simulateBoots();
    sortFindings(m_report.findings);
    return std::move(m_report);
  }

private:
  std::optional<Common::Rpm::Machine> findMachine() {
    m_report.architecture = m_options.architecture.value_or(architectureOf(m_image));
    if (m_report.architecture.empty()) {
      m_report.notChecked.push_back(
          {.id = "architecture-foreign", .why = "nothing tells the architecture of the device; --arch does"});
      return std::nullopt;
    }
    const auto machine = Common::Rpm::Machine::ofArchitecture(m_report.architecture);
    if (!machine)
      throw UsageError("RPM does not know the architecture " + printable(m_report.architecture));
    return machine;
  }

  void take(std::vector<EntryReport> reports) {
    for (EntryReport& report : reports) {
      append(m_report.findings, report.findings);
      m_content.isListable = m_content.isListable && !report.breaksListing;
      if (report.entry.package)
        m_report.packages.push_back(*report.entry.package);
      m_content.entries.push_back(std::move(report.entry));
    }
  }

  void simulateBoots() {
    m_content.name = m_options.image;
    SimulationInput input{.image = m_content, .previous = {}, .removed = m_options.removed};
    for (Simulation& simulation : simulate(input))
      m_report.scenarios.push_back(std::move(simulation.scenario));
  }

  const Options& m_options;
  const Progress& m_progress;
  const ImageTree m_image;
  const TempFolder m_folder;
  Report m_report{};
  ImageContent m_content;
};

} // namespace

Report check(const Options& options, const Progress& progress) {
  return Check(options, progress).run();
}

} // namespace ImageCheck
