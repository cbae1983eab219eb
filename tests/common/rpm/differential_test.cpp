// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/differential_cases.h"
#include "tests/common/rpm/differential_comparison.h"

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <set>

#include <unistd.h>

namespace Differential {

void PrintTo(const Case& each, std::ostream* stream) {
  *stream << each.name;
}

} // namespace Differential

namespace {

using Differential::Case;

/// One question that this project answers otherwise than librpm, of some packages, and why it stays so.
struct Exception {
  std::string reason;
  std::string question;
  std::set<std::string> packages;
};

const std::vector<Exception> exceptions = {};

std::map<std::string, std::string> reasonsFor(const std::string& package) {
  std::map<std::string, std::string> reasons;
  for (const Exception& exception : exceptions) {
    const bool isAsked = exception.question != Differential::installedTree || geteuid() == 0;
    if (isAsked && exception.packages.contains(package))
      reasons[exception.question] = exception.reason;
  }
  return reasons;
}

class ComparedWithRpm : public testing::TestWithParam<Case> {
protected:
  const Support::RpmSandbox m_sandbox;
};

TEST_P(ComparedWithRpm, IsTheSame) {
  const std::filesystem::path package = m_sandbox.path() / "sample.rpm";
  m_sandbox.build(GetParam().input, package);
  if (GetParam().change)
    GetParam().change(m_sandbox, package);
  const std::filesystem::path folder = m_sandbox.path() / "work";
  std::filesystem::create_directory(folder);
  std::map<std::string, std::string> reasons = reasonsFor(GetParam().name);
  for (const auto& [question, answers] : Differential::compare(package, folder)) {
    if (reasons.erase(question) == 0)
      ADD_FAILURE() << "another answer: " << question << "\nours:\n"
                    << answers.ours << "\nlibrpm's:\n"
                    << answers.theirs;
  }
  for (const auto& [question, reason] : reasons)
    ADD_FAILURE() << "the same answer now: " << question << ", in spite of: " << reason;
}

INSTANTIATE_TEST_SUITE_P(Built, ComparedWithRpm, testing::ValuesIn(Differential::builtPackages()),
                         [](const auto& instance) { return instance.param.name; });
INSTANTIATE_TEST_SUITE_P(Handmade, ComparedWithRpm, testing::ValuesIn(Differential::handmadePackages()),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
