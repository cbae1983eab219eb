// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/common/rpm/differential_cases.h"
#include "tests/common/rpm/differential_comparison.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <ostream>

namespace Differential {

void PrintTo(const Answers& answers, std::ostream* stream) {
  *stream << "ours:\n" << answers.ours << "\ntheirs:\n" << answers.theirs;
}

} // namespace Differential

namespace {

void PrintTo(const Differential::Case& each, std::ostream* stream) { *stream << each.name; }
using Differential::Case;

class Differential_ : public testing::TestWithParam<Case> {
protected:
  const Support::RpmSandbox m_sandbox;
};

TEST_P(Differential_, AnswersAsLibrpm) {
  const std::filesystem::path package = m_sandbox.path() / "sample.rpm";
  m_sandbox.build(GetParam().input, package);
  if (GetParam().change)
    GetParam().change(m_sandbox, package);
  const std::filesystem::path folder = m_sandbox.path() / "work";
  std::filesystem::create_directory(folder);
  for (const auto& [question, answers] : Differential::compare(package, folder)) ADD_FAILURE() << question << "\n" << testing::PrintToString(answers).substr(0,3000);
}

INSTANTIATE_TEST_SUITE_P(Handmade, Differential_, testing::ValuesIn(Differential::handmadePackages()),
                         [](const auto& instance) { return instance.param.name; });
INSTANTIATE_TEST_SUITE_P(Built, Differential_, testing::ValuesIn(Differential::builtPackages()),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
