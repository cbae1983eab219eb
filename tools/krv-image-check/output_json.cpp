// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/output_json.h"

#include "tools/krv-image-check/catalogue.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/summary.h"

#include <nlohmann/json.hpp>

namespace ImageCheck {

namespace {

/// Keeps the order of the members.
using Json = nlohmann::ordered_json;

template <typename Values, typename Convert>
Json arrayOf(const Values& values, Convert convert) {
  Json array = Json::array();
  for (const auto& value : values)
    array.push_back(convert(value));
  return array;
}

/// Adds the name of an entry. JSON is UTF-8 and a file name need not be.
void putEntry(Json& object, const std::string& entry) {
  object["entry"] = utf8(entry);
  if (!isUtf8(entry))
    object["entry_hex"] = hexadecimal(entry);
}

Json toJson(const Developer& developer) {
  return {{"key_id", utf8(developer.identity.keyId)},
          {"previous_key_ids", arrayOf(developer.identity.previousKeyIds, utf8)},
          {"subject", utf8(developer.subject)},
          {"issuer", utf8(developer.issuer)},
          {"not_after", timeText(developer.notAfter)},
          {"trusted", developer.isTrusted}};
}

Json packageToJson(const Package& package) {
  Json object;
  putEntry(object, package.entry);
  object["name"] = utf8(package.name);
  object["version"] = utf8(package.version);
  object["arch"] = utf8(package.architecture);
  object["sha256"] = package.sha256;
  object["developer"] = package.developer ? toJson(*package.developer) : Json();
  return object;
}

Json rowToJson(const Row& row) {
  Json object;
  putEntry(object, row.entry);
  object["name"] = utf8(row.name);
  object["action"] = nameOf(row.action);
  object["reason"] = row.reason;
  return object;
}

Json stateToJson(const InstalledState& state) {
  return {{"name", utf8(state.name)}, {"version", utf8(state.version)}, {"key_id", utf8(state.keyId)}};
}

Json scenarioToJson(const Scenario& scenario) {
  return {{"name", utf8(scenario.name)},
          {"rows", arrayOf(scenario.rows, rowToJson)},
          {"end_state", arrayOf(scenario.endState, stateToJson)}};
}

Json findingToJson(const Finding& finding) {
  const Explanation& explanation = explain(finding.id);
  Json object{{"id", finding.id}, {"severity", nameOf(explanation.severity)}, {"entry", nullptr}};
  if (finding.entry)
    putEntry(object, *finding.entry);
  object["message"] = utf8(finding.message);
  object["consequence"] = explanation.consequence;
  object["remedy"] = explanation.remedy;
  object["data"] = Json::object();
  for (const auto& [key, value] : finding.data)
    object["data"][key] = Json::parse(value);
  object["fingerprint"] = fingerprintOf(finding);
  object["waived_by"] = finding.waivedBy ? Json(utf8(*finding.waivedBy)) : Json();
  return object;
}

Json notCheckedToJson(const NotChecked& notChecked) {
  return {{"id", notChecked.id}, {"why", utf8(notChecked.why)}};
}

Json summaryToJson(const Summary& summary) {
  return {
      {"error", summary.errors}, {"warning", summary.warnings}, {"note", summary.notes}, {"waived", summary.waived}};
}

} // namespace

std::string toJson(const Report& report, std::string_view toolVersion) {
  const Json object{{"format_version", "1.0"},
                    {"tool", toolVersion},
                    {"image", utf8(report.image)},
                    {"at", dateText(report.at)},
                    {"arch", report.architecture},
                    {"summary", summaryToJson(summarize(report))},
                    {"packages", arrayOf(report.packages, packageToJson)},
                    {"scenarios", arrayOf(report.scenarios, scenarioToJson)},
                    {"findings", arrayOf(report.findings, findingToJson)},
                    {"not_checked", arrayOf(report.notChecked, notCheckedToJson)}};
  return object.dump(2) + "\n";
}

} // namespace ImageCheck
