// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/dependency_check.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace Common::Rpm {

void PrintTo(const DependencyCheck::Problem& problem, std::ostream* stream) {
  *stream << (problem.kind == DependencyCheck::Problem::Kind::Missing ? "missing" : "conflict") << " for "
          << problem.package << ": " << problem.other;
}

} // namespace Common::Rpm

namespace {

using Common::Rpm::DependencyCheck;
using testing::ElementsAre;
using testing::IsEmpty;

using Problem = DependencyCheck::Problem;
using Kind = Problem::Kind;

class Dependency : public testing::Test {
protected:
  Common::Rpm::Reader package(const std::string& name, const std::string& dependencies) const {
    const std::filesystem::path path = m_sandbox.path() / (name + ".rpm");
    m_sandbox.build({.name = name, .preamble = "AutoReqProv: no\n" + dependencies}, path);
    return Common::Rpm::Reader(path.string());
  }

  Support::RpmSandbox m_sandbox;
};

TEST_F(Dependency, IsMissingIfNoPackageProvidesIt) {
  DependencyCheck check;
  check.add(package("first", "Requires: absent >= 2, first"), 7);
  check.add(package("second", "Requires: absent, third = 3\nProvides: third = 2"), 8);
  EXPECT_THAT(check.problems(),
              ElementsAre(Problem{Kind::Missing, 7, "absent >= 2"}, Problem{Kind::Missing, 8, "absent"},
                          Problem{Kind::Missing, 8, "third = 3"}));
}

TEST_F(Dependency, IsProvidedByAnotherPackageOrByAnInstalledOne) {
  package("base", "Provides: thing = 5");
  Support::runOrThrow({"rpm", "-i", "--justdb", (m_sandbox.path() / "base.rpm").string()}, {});
  DependencyCheck check;
  check.add(package("user", "Requires: thing > 4, second"), 0);
  EXPECT_THAT(check.problems(), ElementsAre(Problem{Kind::Missing, 0, "second"}));
  check.add(package("second", ""), 1);
  EXPECT_THAT(check.problems(), IsEmpty());
}

TEST_F(Dependency, ConflictsWithAnotherPackage) {
  DependencyCheck check;
  check.add(package("first", "Conflicts: second < 2"), 0);
  EXPECT_THAT(check.problems(), IsEmpty());
  check.add(package("second", ""), 1);
  EXPECT_THAT(check.problems(), ElementsAre(Problem{Kind::Conflict, 0, "second < 2"}));
}

TEST_F(Dependency, IsReportedForEachPackageOfOneIdentity) {
  DependencyCheck check;
  check.add(package("twice", "Requires: absent"), 3);
  check.add(package("twice", "Requires: absent"), 4);
  EXPECT_THAT(check.problems(), ElementsAre(Problem{Kind::Missing, 3, "absent"}, Problem{Kind::Missing, 4, "absent"}));
}

TEST_F(Dependency, IsForgottenWithThePackages) {
  DependencyCheck check;
  check.add(package("first", "Requires: absent"), 0);
  check.add(package("second", ""), 1);
  check.clear();
  EXPECT_THAT(check.problems(), IsEmpty());
  check.add(package("third", "Requires: second"), 2);
  EXPECT_THAT(check.problems(), ElementsAre(Problem{Kind::Missing, 2, "second"}));
}

} // namespace
