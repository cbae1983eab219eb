// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/machine.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/process.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Common::Rpm::Machine;

TEST(Machine, RunsThePackagesOfItsArchitectureAndTheCompatibleOnes) {
  const struct {
    std::string machine;
    std::string package;
    bool runs;
  } cases[] = {
      {"x86_64", "x86_64", true},   {"x86_64", "i686", true},      {"x86_64", "noarch", true},
      {"x86_64", "aarch64", false}, {"aarch64", "aarch64", true},  {"aarch64", "noarch", true},
      {"aarch64", "x86_64", false}, {"i686", "i586", true},        {"i686", "x86_64", false},
      {"armv7hl", "armv6hl", true}, {"armv6hl", "armv7hl", false}, {"x86_64", "", false},
  };
  for (const auto& [machine, package, runs] : cases) {
    SCOPED_TRACE(package + " on " + machine);
    ASSERT_TRUE(Machine::ofArchitecture(machine));
    EXPECT_EQ(Machine::ofArchitecture(machine)->runs(package), runs);
  }
}

TEST(Machine, IsNothingForAnUnknownArchitecture) {
  EXPECT_FALSE(Machine::ofArchitecture("pdp11"));
  EXPECT_FALSE(Machine::ofArchitecture(""));
  EXPECT_FALSE(Machine::ofArchitecture("noarch"));
}

TEST(Machine, AgreesWithRpmAboutTheCurrentMachine) {
  const Support::RpmSandbox sandbox;
  std::string architecture = Support::runOrThrow({"rpm", "--eval", "%{_arch}"});
  architecture.pop_back(); // the line break
  const auto named = Machine::ofArchitecture(architecture);
  ASSERT_TRUE(named) << architecture;
  const Machine current = Machine::current();
  for (const char* package : {"noarch", "x86_64", "amd64", "athlon", "i686", "i586", "i386", "aarch64", "armv7hl",
                              "ppc64le", "s390x", "riscv64", "m68k", "src", "pdp11", ""})
    EXPECT_EQ(named->runs(package), current.runs(package)) << package;
}

} // namespace
