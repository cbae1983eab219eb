// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/sandbox/script_test.h"
#include "tests/support/process/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <signal.h>

namespace {

namespace fs = std::filesystem;

class DemoImage : public ScriptTest {
protected:
  fs::path pages() const { return m_directory / "pages"; }
};

std::string withoutKeys(const std::string& text) {
  return std::regex_replace(text, std::regex("\\b([0-9a-f]{48})?[0-9a-f]{16}\\b"), "KEY");
}

/// Sorts the rows of certificates: the order of two with the same subject depends on their keys.
std::string withSortedCertificates(const std::string& page) {
  std::vector<std::string> lines;
  std::istringstream stream(page);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  const auto isRow = [](const std::string& line) { return line.starts_with("<li class=\"row\"><div>"); };
  const auto first = std::ranges::find_if(lines, isRow);
  std::sort(first, std::find_if_not(first, lines.end(), isRow));
  std::string sorted;
  for (const std::string& line : lines)
    sorted += line + "\n";
  return sorted;
}

/// The page as it is on each day, with any keys, on each machine.
std::string comparable(const fs::path& page) {
  const std::string text =
      std::regex_replace(withoutKeys(Support::readFile(page)), std::regex("\\d{4}-\\d\\d-\\d\\d"), "DATE");
  return withSortedCertificates(std::regex_replace(text, std::regex("architecture \\w+"), "architecture ARCH"));
}

TEST_F(DemoImage, ShowsEightMistakesAndTheRepairedImage) {
  const Support::ProcessResult result = Support::run(script("demo-image"), environment(), "/");
  EXPECT_EQ(withoutKeys(result.output), Support::readFile(KRV_SOURCE_DIRECTORY "/tests/sandbox/demo_image.expected"));
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  expectNothingLeft();
}

TEST_F(DemoImage, WritesThePagesOfTheDocuments) {
  fs::create_directory(pages());
  const Support::ProcessResult result = Support::run(script("demo-image", {"--html", pages()}), environment());
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 0);
  const fs::path documents = KRV_SOURCE_DIRECTORY "/docs";
  for (const char* page : {"image-check-broken.html", "image-check-repaired.html"})
    EXPECT_EQ(comparable(pages() / page), comparable(documents / page)) << "run scripts/demo-image --html docs";
  expectNothingLeft();
}

TEST_F(DemoImage, RefusesAMissingFolder) {
  const Support::ProcessResult result = Support::run(script("demo-image", {"--html", pages()}), environment());
  EXPECT_EQ(result.errors, "demo-image: " + pages().string() + " is not a folder\n");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.status, 1);
  expectNothingLeft();
}

TEST_F(DemoImage, FailsIfAPageCannotBeWritten) {
  fs::create_directories(pages() / "image-check-broken.html");
  const Support::ProcessResult result = Support::run(script("demo-image", {"--html", pages()}), environment());
  EXPECT_EQ(result.errors,
            "krv-image-check: " + (pages() / "image-check-broken.html").string() + " cannot be written\n");
  EXPECT_EQ(result.status, 2);
  expectNothingLeft();
}

TEST_F(DemoImage, LeavesNothingBehindWhenItIsInterrupted) {
  signal(SIGINT, SIG_DFL); // a shell cannot trap signals that its parent ignores
  Support::Process demo(script("demo-image"), environment());
  ASSERT_TRUE(Support::waitUntil([&] { return demo.outputSoFar().find("\n1. ") != std::string::npos; }));
  demo.signal(SIGINT);
  EXPECT_EQ(demo.wait().status, 128 + SIGINT);
  expectNothingLeft();
}

TEST(DemoImageUsage, IsPrinted) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {}, {KRV_BINARY_DIRECTORY, "more"}, {KRV_BINARY_DIRECTORY, "--html"}, {KRV_BINARY_DIRECTORY, "-h", "x"}}) {
    std::vector<std::string> command{KRV_SOURCE_DIRECTORY "/sandbox/demo-image"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Support::ProcessResult result = Support::run(command);
    EXPECT_EQ(result.errors, "usage: demo-image BIN-DIR [--html DIR]\n");
    EXPECT_EQ(result.status, 2);
  }
}

} // namespace
