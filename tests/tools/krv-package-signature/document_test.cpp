// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/tools/krv-package-signature/tokens.h"
#include "tests/tools/krv-package-signature/tool_fixture.h"

#include <set>
#include <sstream>

namespace {

/// A script of the page, and what the page says that it prints; empty if it does not say it.
struct Step {
  std::string language; ///< "bash", or "sh" for what needs a token
  std::string script;
  std::string output;
};

/// The steps of docs/signing.md. An output is a fenced block without a language, directly behind its script.
std::vector<Step> documentedSteps() {
  std::istringstream page(Support::readFile(KRV_SOURCE_DIRECTORY "/docs/signing.md"));
  std::vector<Step> steps;
  std::string* block = nullptr;
  bool isInside = false;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("```")) {
      isInside = !isInside;
      if (isInside && line == "```")
        block = &steps.back().output;
      else if (isInside)
        block = &steps.emplace_back(Step{.language = line.substr(3), .script = {}, .output = {}}).script;
    } else if (isInside) {
      *block += line + '\n';
    }
  }
  return steps;
}

/// Runs the commands of the page in one folder.
class SigningPage : public PackageSignatureTool {
protected:
  SigningPage() { sandbox().build({.name = "player"}, folder() / "player.rpm"); }

  void follow(const std::set<std::string>& languages, const Support::Environment& more = {}) const {
    Support::Environment environment = more;
    environment["PATH"] = Support::program("krv-package-signature").parent_path().string() + ":" + getenv("PATH");
    std::size_t outputs = 0;
    for (const auto& [language, script, output] : documentedSteps()) {
      if (!languages.contains(language))
        continue;
      const Support::ProcessResult result = Support::run({"bash", "-c", "set -e\n" + script}, environment, folder());
      ASSERT_EQ(result.status, 0) << script << result.errors;
      if (output.empty())
        continue;
      ++outputs;
      EXPECT_EQ(shownBy(result), output) << script;
    }
    EXPECT_GE(outputs, 9U);
  }

private:
  /// Only the tool's own lines are shown on the page, not what the openssl program says.
  static std::string shownBy(const Support::ProcessResult& result) {
    std::istringstream errors(result.errors);
    std::string shown = result.output;
    for (std::string line; std::getline(errors, line);) {
      if (line.starts_with(tool))
        shown += line + '\n';
    }
    return shown;
  }
};

TEST_F(SigningPage, HasCommandsThatWork) {
  follow({"bash"});
}

TEST_F(SigningPage, HasCommandsForATokenThatWork) {
  if (const std::string missing = missingForTokens(); !missing.empty())
    GTEST_SKIP() << missing;
  follow({"bash", "sh"}, environmentForTokens(sandbox().path()));
}

} // namespace
