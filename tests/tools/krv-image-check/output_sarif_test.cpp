// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/process.h"
#include "tests/support/process/temp_directory.h"
#include "tests/tools/krv-image-check/sample_report.h"
#include "tools/krv-image-check/catalogue.h"
#include "tools/krv-image-check/output_sarif.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>

namespace {

using ImageCheck::Finding;
using ImageCheck::Report;
using nlohmann::json;

/// The mistakes of a log according to the schema, one per line.
std::string mistakesOf(const std::string& log) {
  const Support::TempDirectory folder;
  Support::writeFile(folder / "log.sarif", log);
  const Support::ProcessResult result =
      Support::run({KRV_TEST_FOLDER "/validate_json.py", KRV_TEST_FOLDER "/sarif.schema.json", folder / "log.sarif"});
  return result.output + result.errors;
}

json runOf(const Report& report) {
  return json::parse(ImageCheck::toSarif(report, "1.2.3")).at("runs").at(0);
}

Report reportWith(const Finding& finding) {
  return {.image = "image",
          .at = {},
          .architecture = "",
          .packages = {},
          .scenarios = {},
          .findings = {finding},
          .notChecked = {}};
}

json resultOf(const Finding& finding) {
  return runOf(reportWith(finding)).at("results").at(0);
}

TEST(Sarif, HasWhatTheStandardRequires) {
  EXPECT_EQ(mistakesOf(ImageCheck::toSarif(ImageCheckTest::sampleReport(), "1.2.3")), "");
  EXPECT_EQ(mistakesOf(ImageCheck::toSarif(ImageCheckTest::goodReport(), "1.2.3")), "");
}

TEST(Sarif, IsValidatedForReal) {
  EXPECT_EQ(mistakesOf(R"({"version": "2.1.0", "runs": [{"results": []}]})"),
            "runs/0: 'tool' is a required property\n");
  json log = json::parse(ImageCheck::toSarif(ImageCheckTest::sampleReport(), "1.2.3"));
  log["runs"][0]["results"][0]["message"]["text"] = "[a link](https://e.example/)";
  EXPECT_NE(mistakesOf(log.dump()), "");
}

TEST(Sarif, IsTheSameForTheSameReport) {
  EXPECT_EQ(ImageCheck::toSarif(ImageCheckTest::sampleReport(), "1.2.3"),
            ImageCheck::toSarif(ImageCheckTest::sampleReport(), "1.2.3"));
}

TEST(Sarif, DeclaresEachIdAsARule) {
  const json rules = runOf(ImageCheckTest::goodReport()).at("tool").at("driver").at("rules");
  ASSERT_EQ(rules.size(), ImageCheck::catalogue().size());
  for (std::size_t index = 0; index < rules.size(); ++index) {
    const ImageCheck::Explanation& explanation = ImageCheck::catalogue()[index];
    EXPECT_EQ(rules[index].at("id"), explanation.id);
    EXPECT_EQ(rules[index].at("defaultConfiguration").at("level"), ImageCheck::nameOf(explanation.severity));
  }
}

TEST(Sarif, RefersToTheRuleOfEachResult) {
  const json run = runOf(ImageCheckTest::sampleReport());
  EXPECT_GT(run.at("results").size(), 10U);
  for (const json& result : run.at("results")) {
    const json& rule = run.at("tool").at("driver").at("rules").at(result.at("ruleIndex").get<std::size_t>());
    EXPECT_EQ(rule.at("id"), result.at("ruleId"));
    EXPECT_EQ(rule.at("defaultConfiguration").at("level"), result.at("level"));
  }
}

TEST(Sarif, HasTheEntryBelowTheRootOfTheImage) {
  json result = resultOf({.id = "unsigned", .entry = "notes 1.rpm", .message = "no signature"});
  result.erase("ruleIndex");
  EXPECT_EQ(result, json::parse(R"({
    "ruleId": "unsigned", "level": "error", "message": {"text": "no signature"},
    "locations": [{"physicalLocation": {"artifactLocation":
      {"uri": "usr/share/krv/pre-install-apps/notes%201.rpm", "uriBaseId": "IMAGE"}}}],
    "partialFingerprints": {"finding/v1": "29750b08887741db92c11b4e179e3567"}})"));
}

TEST(Sarif, HasTheDirectoryForAFindingAboutTheImage) {
  const json result = resultOf({.id = "tool-missing", .entry = std::nullopt, .message = "there is no tool"});
  EXPECT_EQ(result.at("locations").at(0).at("physicalLocation").at("artifactLocation").at("uri"),
            "usr/share/krv/pre-install-apps");
}

TEST(Sarif, EncodesHostileNames) {
  const json result =
      resultOf({.id = "unsigned", .entry = "a:b?\n\xff[{\"", .message = "[x](https://e.example) {0} \xff"});
  EXPECT_EQ(result.at("locations").at(0).at("physicalLocation").at("artifactLocation").at("uri"),
            "usr/share/krv/pre-install-apps/a%3Ab%3F%0A%FF%5B%7B%22");
  EXPECT_EQ(result.at("message").at("text"), "\\[x\\](https://e.example) {{0}} \\xff");
}

TEST(Sarif, KeepsWaivedFindingsAsSuppressions) {
  Finding finding{.id = "entry-owner", .entry = "notes.rpm", .message = "owner 1000"};
  EXPECT_FALSE(resultOf(finding).contains("suppressions"));
  finding.waivedBy = "reviewed";
  EXPECT_EQ(resultOf(finding).at("suppressions"),
            json::parse(R"([{"kind": "external", "justification": "reviewed"}])"));
}

TEST(Sarif, HasFingerprintsThatDoNotDependOnTheMessage) {
  Finding finding{.id = "signer-expires-soon", .entry = "notes.rpm", .message = "ends in 41 days"};
  const json before = resultOf(finding).at("partialFingerprints");
  finding.message = "ends in 40 days";
  EXPECT_EQ(resultOf(finding).at("partialFingerprints"), before);
  finding.entry = "maps.rpm";
  EXPECT_NE(resultOf(finding).at("partialFingerprints"), before);
  std::set<json> fingerprints;
  const json results = runOf(ImageCheckTest::sampleReport()).at("results");
  for (const json& result : results)
    fingerprints.insert(result.at("partialFingerprints"));
  EXPECT_EQ(fingerprints.size(), results.size());
}

TEST(Sarif, SaysWhichChecksWereNotMade) {
  Report report = reportWith({.id = "unsigned", .entry = "notes.rpm", .message = "no signature"});
  report.notChecked = {{.id = "directory-missing", .why = "nobody looked"}};
  EXPECT_EQ(runOf(report).at("invocations"), json::parse(R"([{"executionSuccessful": true,
    "toolExecutionNotifications": [{"level": "warning", "message": {"text": "not checked: nobody looked"},
                                    "associatedRule": {"id": "directory-missing", "index": 0}}]}])"));
}

} // namespace
