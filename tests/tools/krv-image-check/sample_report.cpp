// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-image-check/sample_report.h"

#include "tools/krv-image-check/past.h"
#include "tools/krv-image-check/simulation.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ImageCheckTest {

namespace {

using namespace std::chrono;
using ImageCheck::Entry;
using ImageCheck::Finding;
using ImageCheck::Package;
using ImageCheck::Report;
using ImageCheck::SimulationInput;

constexpr sys_days today = 2026y / November / 21;

struct Signer {
  std::string name;
  std::string subject;
  int days;
  std::vector<std::string> previous = {};
};

const Signer alice{.name = "alice", .subject = "CN=Alice Example,O=Example Apps", .days = 412};
const Signer aliceLater{
    .name = "alice-2", .subject = "CN=Alice Example,O=Example Apps", .days = 1900, .previous = {"alice"}};
const Signer bob{.name = "bob", .subject = "CN=Bob", .days = 41};
const Signer carol{.name = "carol", .subject = "CN=Carol,O=Maps & More", .days = -12};

/// Digits like those of a key or a digest, always the same for one text.
std::string digits(const std::string& text) {
  std::string result;
  std::size_t state = 17;
  while (result.size() < 64) {
    for (const char character : text)
      state = (state * 31 + static_cast<unsigned char>(character)) % 1000003;
    result += "0123456789abcdef"[state % 16];
  }
  return result;
}

Entry entry(const std::string& name, const std::string& version, const Signer& signer) {
  const std::string file = name + "-" + version + ".noarch.rpm";
  Package package{.entry = file,
                  .name = name,
                  .version = version,
                  .architecture = "noarch",
                  .sha256 = digits(file),
                  .developer = {},
                  .refusal = {},
                  .files = {},
                  .fullVersion = version};
  std::vector<std::string> previous;
  for (const std::string& key : signer.previous)
    previous.push_back(digits(key));
  package.developer = {.identity = {.keyId = digits(signer.name), .subgroup = "regular", .previousKeyIds = previous},
                       .subject = signer.subject,
                       .issuer = "CN=Example authority",
                       .notAfter = today + days(signer.days),
                       .isTrusted = true};
  return {.name = file, .package = package};
}

Entry refused(Entry entry, Common::ErrorCode code) {
  entry.package->refusal = code;
  return entry;
}

Report reportOn(const SimulationInput& input) {
  Report report{.image = input.image.name,
                .at = today,
                .architecture = "x86_64",
                .packages = {},
                .scenarios = {},
                .findings = {},
                .notChecked = {}};
  for (const Entry& entry : input.image.entries) {
    if (entry.package)
      report.packages.push_back(*entry.package);
  }
  std::ranges::sort(report.packages, {}, &Package::entry);
  const std::vector<ImageCheck::Simulation> simulations = ImageCheck::simulate(input);
  for (const ImageCheck::Simulation& simulation : simulations)
    report.scenarios.push_back(simulation.scenario);
  report.findings = ImageCheck::findingsAboutThePast(input, simulations);
  return report;
}

const std::string hostileName = "x<script>alert(1)</script>\x1b[2J\"&'\xff\xe2\x80\xae";

SimulationInput sampleInput() {
  return {
      .image = {.name = "build/image-2026.47",
                .entries = {entry("notes", "1.2-1", aliceLater),
                            entry("notes", "1.3-1", aliceLater),
                            entry("maps", "4.0-1", bob),
                            entry("calendar", "2.0-2", bob),
                            entry("radio", "0.9-3", alice),
                            refused(entry("camera", "3.1-1", alice), Common::ErrorCode::BadPackageArchitecture),
                            refused(entry("weather", "7.7-1", carol), Common::ErrorCode::IllegalDeveloperCertificate),
                            entry(hostileName, "1.0-1", alice),
                            {.name = "README.txt", .package = {}},
                            {.name = hostileName, .package = {}}}},
      .previous = {{.name = "build/image-2026.30",
                    .entries = {entry("notes", "1.1-1", alice), entry("maps", "3.9-1", alice),
                                entry("calendar", "2.1-1", bob), entry("radio", "0.9-3", alice),
                                entry("dictionary", "1.0-1", alice)}},
                   {.name = "build/image-2026.12", .entries = {entry("notes", "1.0-1", alice)}}},
      .removed = {"radio"}};
}

void addOtherFindings(Report& report) {
  const auto add = [&](const std::string& id, const std::optional<std::string>& name, const std::string& message) {
    report.findings.push_back({.id = id, .entry = name, .message = message});
  };
  add("tool-not-enabled", std::nullopt, "no link to krv-pre-installer.service in a target's folder");
  add("architecture-foreign", "camera-3.1-1.noarch.rpm", "the package is for aarch64, the device is x86_64");
  add("signer-expired", "weather-7.7-1.noarch.rpm", "CN=Carol,O=Maps & More ended on 2026-11-09");
  add("signer-expires-soon", "maps-4.0-1.noarch.rpm", "CN=Bob ends in 41 days, on 2027-01-01");
  add("signer-expires-soon", "calendar-2.0-2.noarch.rpm", "CN=Bob ends in 41 days, on 2027-01-01");
  add("entry-not-a-package", "README.txt", "the file does not begin like an RPM package");
  add("entry-not-a-package", hostileName, "the file does not begin like an RPM package");
  add("scriptlet-present", "radio-0.9-3.noarch.rpm", "the package has a postinstall script");
  report.findings.back().waivedBy = "reviewed <b>by</b> the image team";
  report.notChecked.push_back({.id = "dependency-missing", .why = "the image has no RPM database"});
}

} // namespace

Report sampleReport() {
  Report report = reportOn(sampleInput());
  addOtherFindings(report);
  std::ranges::stable_sort(report.findings, {},
                           [](const Finding& finding) { return std::pair(finding.entry.value_or(""), finding.id); });
  return report;
}

Report goodReport() {
  return reportOn({.image = {.name = "build/image-2026.48", .entries = {entry("notes", "1.2-1", alice)}},
                   .previous = {},
                   .removed = {}});
}

} // namespace ImageCheckTest
