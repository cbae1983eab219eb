// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/output_sarif.h"

#include "tools/krv-image-check/catalogue.h"
#include "tools/krv-image-check/escape.h"
#include "tools/krv-image-check/image_checks.h"
#include "tools/krv-image-check/summary.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace ImageCheck {

namespace {

/// Keeps the order of the members.
using Json = nlohmann::ordered_json;

constexpr const char* rootOfTheImage = "IMAGE";

/// A text as a SARIF message: braces would be placeholders there, and brackets links.
Json message(std::string_view text) {
  std::string escaped;
  for (const char character : utf8(text)) {
    if (character == '{' || character == '}')
      escaped += character;
    else if (character == '[' || character == ']')
      escaped += '\\';
    escaped += character;
  }
  return {{"text", escaped}};
}

/// The bytes of a path as a relative URI reference (RFC 3986).
std::string uriOf(std::string_view path) {
  static constexpr std::string_view unreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  static constexpr std::string_view digits = "0123456789ABCDEF";
  std::string uri;
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    if (unreserved.find(character) != unreserved.npos)
      uri += character;
    else
      uri.append("%").append(1, digits[byte / 16]).append(1, digits[byte % 16]);
  }
  return uri;
}

Json rule(const Explanation& explanation) {
  return {{"id", explanation.id},
          {"shortDescription", message(explanation.title)},
          {"fullDescription", message(explanation.consequence)},
          {"help", message(explanation.remedy)},
          {"defaultConfiguration", {{"level", nameOf(explanation.severity)}}}};
}

Json rules() {
  Json rules = Json::array();
  for (const Explanation& explanation : catalogue())
    rules.push_back(rule(explanation));
  return rules;
}

std::ptrdiff_t indexOf(const std::string& id) {
  return &explain(id) - catalogue().data();
}

Json location(const Finding& finding) {
  const std::string path = std::string(preInstallDirectory) + (finding.entry ? "/" + *finding.entry : "");
  return {{"physicalLocation", {{"artifactLocation", {{"uri", uriOf(path)}, {"uriBaseId", rootOfTheImage}}}}}};
}

Json result(const Finding& finding) {
  Json result{{"ruleId", finding.id},
              {"ruleIndex", indexOf(finding.id)},
              {"level", nameOf(explain(finding.id).severity)},
              {"message", message(finding.message)},
              {"locations", Json::array({location(finding)})},
              {"partialFingerprints", {{"finding/v1", fingerprintOf(finding)}}}};
  if (finding.waivedBy)
    result["suppressions"] = Json::array({{{"kind", "external"}, {"justification", utf8(*finding.waivedBy)}}});
  return result;
}

/// A check that could not be made is no result: nothing is known about the image.
Json notification(const NotChecked& notChecked) {
  return {{"level", "warning"},
          {"message", message("not checked: " + notChecked.why)},
          {"associatedRule", {{"id", notChecked.id}, {"index", indexOf(notChecked.id)}}}};
}

template <typename Values, typename Convert>
Json arrayOf(const Values& values, Convert convert) {
  Json array = Json::array();
  for (const auto& value : values)
    array.push_back(convert(value));
  return array;
}

} // namespace

std::string toSarif(const Report& report, std::string_view toolVersion) {
  const Json driver{{"name", "krv-image-check"}, {"version", toolVersion}, {"rules", rules()}};
  const Json run{
      {"tool", {{"driver", driver}}},
      {"invocations", Json::array({{{"executionSuccessful", true},
                                    {"toolExecutionNotifications", arrayOf(report.notChecked, notification)}}})},
      {"originalUriBaseIds", {{rootOfTheImage, {{"description", message("The root of the image's file tree.")}}}}},
      {"columnKind", "utf16CodeUnits"},
      {"results", arrayOf(report.findings, result)}};
  const Json log{{"version", "2.1.0"}, {"runs", Json::array({run})}};
  return log.dump(2) + "\n";
}

} // namespace ImageCheck
