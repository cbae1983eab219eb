// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/version.h"

#include <gtest/gtest.h>
#include <rpm/rpmver.h>

// Replaces librpm's function, which never returns such a value today.
int rpmverCmp(rpmver /*first*/, rpmver /*second*/) {
  return 2;
}

namespace {

TEST(OddComparison, IsUnexpected) {
  EXPECT_EQ(Common::Rpm::compareVersions("1.0-1", "1.0-1"), Common::Rpm::VersionComparison::Unexpected);
}

TEST(OddComparison, IsNotCalledForAnUnparsableVersion) {
  EXPECT_EQ(Common::Rpm::compareVersions("1.0-1", ""), Common::Rpm::VersionComparison::Unparsable);
}

} // namespace
