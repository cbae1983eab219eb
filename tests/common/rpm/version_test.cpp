// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/version.h"

#include <gtest/gtest.h>

namespace {

using Common::Rpm::compareVersions;
using Common::Rpm::VersionComparison;

struct Case {
  const char* candidate;
  const char* installed;
  VersionComparison expected;
};

class Versions : public testing::TestWithParam<Case> {};

TEST_P(Versions, AreComparedByTheRulesOfRpm) {
  EXPECT_EQ(compareVersions(GetParam().candidate, GetParam().installed), GetParam().expected)
      << GetParam().candidate << " against " << GetParam().installed;
}

INSTANTIATE_TEST_SUITE_P(Table, Versions,
                         testing::Values(Case{"1.0-1", "1.0-1", VersionComparison::LowerOrEqual},
                                         Case{"1.0-2", "1.0-1", VersionComparison::Newer},
                                         Case{"1.0-1", "1.0-2", VersionComparison::LowerOrEqual},
                                         Case{"1.10-1", "1.9-1", VersionComparison::Newer},
                                         Case{"1.0~rc1-1", "1.0-1", VersionComparison::LowerOrEqual},
                                         Case{"1.0^git1-1", "1.0-1", VersionComparison::Newer},
                                         Case{"1.0-1", "2:0.1-1", VersionComparison::LowerOrEqual},
                                         Case{"2.0-1", "1.0", VersionComparison::Newer},
                                         Case{"1.0-1", "", VersionComparison::Unparsable},
                                         Case{"", "1.0-1", VersionComparison::Unparsable},
                                         Case{"", "", VersionComparison::Unparsable}));

} // namespace
