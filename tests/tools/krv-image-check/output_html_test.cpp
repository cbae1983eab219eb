// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/text/utf8.h"
#include "tests/support/process/temp_directory.h"
#include "tests/tools/krv-image-check/browser.h"
#include "tests/tools/krv-image-check/sample_report.h"
#include "tools/krv-image-check/output_html.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>

namespace {

using ImageCheckTest::goodReport;
using ImageCheckTest::openInBrowser;
using ImageCheckTest::sampleReport;

std::string samplePage() {
  return ImageCheck::toHtml(sampleReport(), "1.2.3");
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(HtmlReport, IsTheSameForTheSameReport) {
  EXPECT_EQ(samplePage(), samplePage());
}

TEST(HtmlReport, EscapesHostileNames) {
  const std::string page = samplePage();
  EXPECT_EQ(Common::asUtf8(page), page);
  EXPECT_TRUE(std::ranges::none_of(
      page, [](char character) { return static_cast<unsigned char>(character) < ' ' && character != '\n'; }));
  EXPECT_FALSE(contains(page, "<script"));
  EXPECT_FALSE(contains(page, "\xe2\x80\xae"));
  EXPECT_TRUE(contains(page, "x&lt;script&gt;alert(1)&lt;/script&gt;\\x1b[2J&quot;&amp;&#39;\\xff\\xe2\\x80\\xae"));
  EXPECT_TRUE(contains(page, "reviewed &lt;b&gt;by&lt;/b&gt; the image team"));
}

// The names in a message are printable already.
TEST(HtmlReport, ShowsMessagesAsTheyAre) {
  ImageCheck::Report report = goodReport();
  report.findings.push_back({.id = "tool-missing", .entry = std::nullopt, .message = "a\\xff<b>"});
  const std::string page = ImageCheck::toHtml(report, "1.2.3");
  EXPECT_TRUE(contains(page, "<li>a\\xff&lt;b&gt;")) << page;
  EXPECT_EQ(Common::asUtf8(page), page);
}

TEST(HtmlReport, LoadsNothing) {
  const std::string page = samplePage();
  for (const char* loading : {"http:", "https:", "src=", "url(", "@import", "<link", "<img", "<iframe", "<object"})
    EXPECT_FALSE(contains(page, loading)) << loading;
  EXPECT_TRUE(contains(page, "content=\"default-src 'none'; style-src 'unsafe-inline'\""));
}

/// Elements that begin and do not end would swallow the rest of the page.
TEST(HtmlReport, ClosesEachElement) {
  static const std::set<std::string> empty = {"meta", "br"};
  const std::string page = samplePage();
  const std::regex tag("<(/?)([a-z0-9]+)[^>]*>");
  std::vector<std::string> open;
  for (std::sregex_iterator match(page.begin(), page.end(), tag); match != std::sregex_iterator(); ++match) {
    const std::string name = (*match)[2];
    if (empty.contains(name))
      continue;
    if ((*match)[1].length() == 0) {
      open.push_back(name);
      continue;
    }
    ASSERT_FALSE(open.empty()) << match->position();
    ASSERT_EQ(open.back(), name) << match->position();
    open.pop_back();
  }
  EXPECT_TRUE(open.empty());
}

TEST(HtmlReport, SaysTheVerdictInWords) {
  EXPECT_TRUE(contains(samplePage(), "7 errors: do not ship this image"));
  const std::string good = ImageCheck::toHtml(goodReport(), "1.2.3");
  EXPECT_TRUE(contains(good, "No mistakes found"));
  EXPECT_FALSE(contains(good, "Not checked</h2>"));
}

TEST(HtmlReport, OfAnImageWithoutPackagesSaysSo) {
  const ImageCheck::Report empty{.image = "empty",
                                 .at = {},
                                 .architecture = "",
                                 .packages = {},
                                 .scenarios = {},
                                 .findings = {},
                                 .notChecked = {}};
  EXPECT_TRUE(contains(ImageCheck::toHtml(empty, "1.2.3"), "The image has no entries that a device would look at."));
}

/// The page in a real browser.
class HtmlReportInABrowser : public testing::TestWithParam<int> {
protected:
  void SetUp() override {
    if (!ImageCheckTest::findBrowser())
      GTEST_SKIP() << "there is no headless Chromium; scripts/setup ci installs it";
  }
};

TEST_P(HtmlReportInABrowser, FitsTheWidthAndKeepsHostileNamesAsText) {
  const nlohmann::json seen = openInBrowser(samplePage(), GetParam());
  EXPECT_EQ(seen["width"], GetParam());
  EXPECT_EQ(seen["scrollWidth"], GetParam());
  EXPECT_EQ(seen["tooWide"], nlohmann::json::array());
  EXPECT_EQ(seen["scripts"], 0);
  // One in a finding, three in the plan, one in each of three end states, two in the list of packages.
  EXPECT_EQ(seen["hostileTexts"], 9);
}

INSTANTIATE_TEST_SUITE_P(Widths, HtmlReportInABrowser, testing::Values(1280, 400),
                         [](const auto& information) { return std::to_string(information.param); });

} // namespace
