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

class VersionTable : public testing::TestWithParam<Case> {};

TEST_P(VersionTable, IsComparedByTheRulesOfRpm) {
  EXPECT_EQ(compareVersions(GetParam().candidate, GetParam().installed), GetParam().expected)
      << GetParam().candidate << " against " << GetParam().installed;
}

INSTANTIATE_TEST_SUITE_P(Table, VersionTable,
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

TEST(Versions, AreNotComparedAboveOneMebibyte) {
  const std::string longest(1024 * 1024, '1');
  EXPECT_EQ(compareVersions(longest, "1.0-1"), VersionComparison::Newer);
  EXPECT_EQ(compareVersions("1.0-1", longest), VersionComparison::LowerOrEqual);
  EXPECT_EQ(compareVersions(longest, std::string(1024 * 1024 - 1, '1')), VersionComparison::Newer);
  for (const std::size_t size : {longest.size() + 1, std::size_t{40} * 1024 * 1024}) {
    EXPECT_EQ(compareVersions(std::string(size, '1'), "1.0-1"), VersionComparison::Unparsable);
    EXPECT_EQ(compareVersions("1.0-1", std::string(size, '1')), VersionComparison::Unparsable);
  }
}

} // namespace
