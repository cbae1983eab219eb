// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/wire.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace ImageCheck {

namespace {

/// The binary form of it, CBOR, keeps texts that are not UTF-8.
using Json = nlohmann::json;

Json toWire(const std::string& text) {
  return text;
}

Json toWire(Common::ErrorCode code) {
  return static_cast<int>(code);
}

Json toWire(const Developer& developer);
Json toWire(const Package& package);

template <typename Value>
Json toWire(const std::optional<Value>& value) {
  return value ? Json::array({toWire(*value)}) : Json::array();
}

Json toWire(const Finding& finding) {
  return Json::array({finding.id, toWire(finding.entry), finding.message, finding.about, Json(finding.data)});
}

Json toWire(const Developer& developer) {
  return Json::array({developer.identity.keyId, developer.identity.subgroup, developer.identity.previousKeyIds,
                      developer.subject, developer.issuer, developer.notAfter.time_since_epoch().count(),
                      developer.isTrusted});
}

Json toWire(const OwnedFile& file) {
  return Json::array({file.path.native(), static_cast<int>(file.type), static_cast<unsigned>(file.permissions),
                      file.size, file.digest, file.target, file.isGhost});
}

Json toWire(const Core::KRV::RegistryRecord& record) {
  return Json::array(
      {static_cast<int>(record.event), record.timestamp, record.packageId, record.keyId, record.prevKeyIds});
}

template <typename Value>
Json toWire(const std::vector<Value>& values) {
  Json array = Json::array();
  for (const Value& value : values)
    array.push_back(toWire(value));
  return array;
}

Json toWire(const Package& package) {
  return Json::array({package.entry, package.name, package.version, package.architecture, package.sha256,
                      toWire(package.developer), toWire(package.refusal), toWire(package.files), package.fullVersion,
                      toWire(package.contentRefusal)});
}

template <typename Value>
Value as(const Json& json) {
  return json.get<Value>();
}

Finding findingFrom(const Json& json) {
  Finding finding{.id = json[0], .entry = {}, .message = json[2], .about = json[3], .data = json[4]};
  if (!json[1].empty())
    finding.entry = as<std::string>(json[1][0]);
  return finding;
}

Developer developerFrom(const Json& json) {
  return {.identity = {.keyId = json[0], .subgroup = json[1], .previousKeyIds = json[2]},
          .subject = json[3],
          .issuer = json[4],
          .notAfter = std::chrono::sys_seconds(std::chrono::seconds(as<std::int64_t>(json[5]))),
          .isTrusted = json[6]};
}

OwnedFile fileFrom(const Json& json) {
  return {.path = as<std::string>(json[0]),
          .type = static_cast<std::filesystem::file_type>(as<int>(json[1])),
          .permissions = static_cast<std::filesystem::perms>(as<unsigned>(json[2])),
          .size = json[3],
          .digest = json[4],
          .target = json[5],
          .isGhost = json[6]};
}

Package packageFrom(const Json& json) {
  Package package{.entry = json[0],
                  .name = json[1],
                  .version = json[2],
                  .architecture = json[3],
                  .sha256 = json[4],
                  .developer = {},
                  .refusal = {},
                  .files = {},
                  .fullVersion = json[8]};
  if (!json[5].empty())
    package.developer = developerFrom(json[5][0]);
  if (!json[6].empty())
    package.refusal = static_cast<Common::ErrorCode>(as<int>(json[6][0]));
  if (!json[9].empty())
    package.contentRefusal = static_cast<Common::ErrorCode>(as<int>(json[9][0]));
  for (const Json& file : json[7])
    package.files.push_back(fileFrom(file));
  return package;
}

Core::KRV::RegistryRecord recordFrom(const Json& json) {
  return {.event = static_cast<Core::KRV::RegistryRecord::Event>(as<int>(json[0])),
          .timestamp = json[1],
          .packageId = json[2],
          .keyId = json[3],
          .prevKeyIds = json[4]};
}

std::string bytesOf(const Json& json) {
  std::string bytes;
  Json::to_cbor(json, nlohmann::detail::output_adapter<char>(bytes));
  return bytes;
}

Findings findingsFrom(const Json& json) {
  Findings findings;
  for (const Json& finding : json)
    findings.push_back(findingFrom(finding));
  return findings;
}

} // namespace

std::string pack(const EntryReport& report) {
  return bytesOf(Json::array({report.entry.name, toWire(report.entry.package), toWire(report.findings),
                              report.breaksListing, report.installedSize}));
}

EntryReport unpackEntry(const std::string& bytes) {
  const Json json = Json::from_cbor(bytes);
  EntryReport report{.entry = {.name = json[0], .package = {}},
                     .findings = findingsFrom(json[2]),
                     .breaksListing = json[3],
                     .installedSize = json[4]};
  if (!json[1].empty())
    report.entry.package = packageFrom(json[1][0]);
  return report;
}

std::string pack(const DeviceContent& device) {
  return bytesOf(Json::array({toWire(device.packages), toWire(device.records)}));
}

DeviceContent unpackDevice(const std::string& bytes) {
  const Json json = Json::from_cbor(bytes);
  DeviceContent device;
  for (const Json& package : json[0])
    device.packages.push_back(packageFrom(package));
  for (const Json& record : json[1])
    device.records.push_back(recordFrom(record));
  return device;
}

std::string pack(const Findings& findings) {
  return bytesOf(toWire(findings));
}

Findings unpackFindings(const std::string& bytes) {
  return findingsFrom(Json::from_cbor(bytes));
}

} // namespace ImageCheck
