// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
// What holds for any signature library: this is built against the platform's as well, and shows that it links.
#include "common/signatures/package_cmses.h"
#include "tests/common/signatures/raised.h"

#include <gtest/gtest.h>

namespace {

TEST(AnySignatureLibrary, CannotReadAMissingFile) {
  EXPECT_EQ(raisedBy([] { Common::readPackageCmses("/nowhere/x.rpm", false); }),
            (Raised{Common::ErrorCode::FileNotFound, "Couldn't open RPM package for reading cmses: /nowhere/x.rpm"}));
}

TEST(AnySignatureLibrary, FindsNoDeveloperAmongNoSignatures) {
  EXPECT_EQ(raisedBy([] { Common::developerCertificate({}); }),
            (Raised{Common::ErrorCode::MissingDeveloperSignature, "Package doesn't have developer certificate"}));
  EXPECT_EQ(raisedBy([] { Common::developerIdentity({}); }),
            (Raised{Common::ErrorCode::MissingDeveloperSignature, "Package doesn't have developer signature"}));
}

} // namespace
