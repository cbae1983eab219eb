// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/signatures/package_cmses.h"
#include "tests/common/signatures/raised.h"
#include "tests/support/files/special_files.h"
#include "tests/support/packages/rpm_sandbox.h"
#include "tests/support/process/environment.h"
#include "tests/support/signing/pki.h"

#include <gtest/gtest.h>

namespace {

using Common::developerCertificate;
using Common::DeveloperIdentity;
using Common::developerIdentity;
using Common::ErrorCode;
using Common::readPackageCmses;
using PackageSignatures::Cms;

/// A package on a system that trusts the sandbox's authority.
class PackageCmses : public testing::Test {
protected:
  PackageCmses() : m_package(m_sandbox.path() / "sample.rpm"), m_root("KRV_ROOT_FS", m_sandbox.path().string()) {
    m_sandbox.build({}, m_package);
    Support::trustAuthorityUnder(m_sandbox.path());
  }

  const std::string& package() const { return m_package; }
  const std::filesystem::path& root() const { return m_sandbox.path(); }
  static std::string keyId(const std::string& name) { return Support::Pki::instance().keyId(name); }

  std::optional<Raised> verificationError() const {
    return raisedBy([this] { readPackageCmses(package(), true); });
  }
  DeveloperIdentity identity() const { return developerIdentity(readPackageCmses(package(), false)); }

  void changeContent() const {
    std::string bytes = Support::readFile(package());
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    Support::writeFile(package(), bytes);
  }

private:
  Support::RpmSandbox m_sandbox;
  std::string m_package;
  Support::ScopedEnvironment m_root;
};

TEST_F(PackageCmses, AreReadInOrder) {
  Support::sign(package(), "source");
  Support::sign(package(), "alice");
  const std::vector<Cms> cmses = readPackageCmses(package(), false);
  ASSERT_EQ(cmses.size(), 2U);
  EXPECT_EQ(cmses[0].certificate()->keyId(), keyId("source"));
  EXPECT_EQ(cmses[1].certificate()->keyId(), keyId("alice"));
}

TEST_F(PackageCmses, CannotBeReadFromOtherFiles) {
  Support::makeFifo(root() / "fifo");
  Support::writeFile(root() / "text.rpm", "text\n");
  for (const char* name : {"missing.rpm", "text.rpm", "fifo", "", "a \"b\"\n\xff"}) {
    const std::string path = root() / name;
    for (const bool verify : {false, true})
      EXPECT_EQ(raisedBy([&] { readPackageCmses(path, verify); }),
                (Raised{ErrorCode::FileNotFound, "Couldn't open RPM package for reading cmses: " + path}));
  }
}

TEST_F(PackageCmses, AreEmptyForAnUnsignedPackage) {
  EXPECT_TRUE(readPackageCmses(package(), false).empty());
  EXPECT_EQ(verificationError(),
            (Raised{ErrorCode::MissingDeveloperSignature, "Package doesn't have developer certificate"}));
}

TEST_F(PackageCmses, VerifyForADeveloperWithoutASource) {
  Support::sign(package(), "alice");
  EXPECT_EQ(readPackageCmses(package(), true).size(), 1U);
}

TEST_F(PackageCmses, VerifyForADeveloperAndASource) {
  Support::sign(package(), "alice-3", {"expired", "alice-2"});
  Support::sign(package(), "source");
  EXPECT_EQ(readPackageCmses(package(), true).size(), 2U);
}

TEST_F(PackageCmses, DoNotVerifyForASourceWithoutADeveloper) {
  Support::sign(package(), "source");
  EXPECT_EQ(verificationError(),
            (Raised{ErrorCode::MissingDeveloperSignature, "Package doesn't have developer certificate"}));
}

TEST_F(PackageCmses, DoNotVerifyForAnIllegalDeveloper) {
  for (const char* name : {"foreign", "expired"}) {
    Support::sign(package(), name);
    EXPECT_EQ(verificationError(), (Raised{ErrorCode::IllegalDeveloperCertificate,
                                           "Package is signed with a non-legal developer certificate"}))
        << name;
  }
}

TEST_F(PackageCmses, DoNotVerifyForAnIllegalSource) {
  Support::sign(package(), "alice");
  for (const char* name : {"foreign-source", "expired-source"}) {
    Support::sign(package(), name);
    EXPECT_EQ(verificationError(),
              (Raised{ErrorCode::IllegalSourceCertificate, "Package is signed with a non-legal source certificate"}))
        << name;
  }
}

TEST_F(PackageCmses, DoNotVerifyForOtherContent) {
  Support::sign(package(), "alice");
  changeContent();
  EXPECT_EQ(verificationError(),
            (Raised{ErrorCode::SignatureVerificationFailed, "Package signature verification failed"}));
}

TEST_F(PackageCmses, ReportTheDeveloperBeforeTheSourceBeforeTheContent) {
  Support::sign(package(), "foreign");
  Support::sign(package(), "foreign-source");
  changeContent();
  EXPECT_EQ(verificationError()->code, ErrorCode::IllegalDeveloperCertificate);
  Support::sign(package(), "alice");
  changeContent();
  EXPECT_EQ(verificationError()->code, ErrorCode::IllegalSourceCertificate);
}

TEST_F(PackageCmses, TrustOnlyTheAuthoritiesUnderTheRoot) {
  Support::sign(package(), "alice");
  const Support::ScopedEnvironment elsewhere("KRV_ROOT_FS", (root() / "elsewhere").string());
  EXPECT_EQ(verificationError()->code, ErrorCode::IllegalDeveloperCertificate);
}

TEST_F(PackageCmses, GiveTheDevelopersCertificate) {
  Support::sign(package(), "source");
  Support::sign(package(), "alice");
  EXPECT_EQ(developerCertificate(readPackageCmses(package(), false)).keyId(), keyId("alice"));
}

TEST_F(PackageCmses, GiveTheDevelopersIdentity) {
  Support::sign(package(), "source");
  Support::sign(package(), "system", {"alice", "bob"});
  const DeveloperIdentity found = identity();
  EXPECT_EQ(found.keyId, keyId("system"));
  EXPECT_EQ(found.subgroup, "system");
  EXPECT_EQ(found.previousKeyIds, (std::vector{keyId("alice"), keyId("bob")}));
}

TEST_F(PackageCmses, GiveNoPreviousKeysWithoutARotation) {
  Support::sign(package(), "extended");
  EXPECT_EQ(identity().subgroup, "extended");
  EXPECT_TRUE(identity().previousKeyIds.empty());
  Support::sign(package(), "bob");
  EXPECT_EQ(identity().subgroup, "regular");
  Support::sign(package(), "odd");
  EXPECT_EQ(identity().subgroup, "unknown");
}

TEST_F(PackageCmses, StillGiveTheIdentityWhenForged) {
  Support::sign(package(), "foreign", {"alice"});
  changeContent();
  EXPECT_EQ(identity().keyId, keyId("foreign"));
  EXPECT_EQ(identity().previousKeyIds, std::vector{keyId("alice")});
}

TEST_F(PackageCmses, GiveNoIdentityForASourceWithoutADeveloper) {
  Support::sign(package(), "source");
  const std::vector<Cms> cmses = readPackageCmses(package(), false);
  EXPECT_EQ(raisedBy([&] { developerIdentity(cmses); }),
            (Raised{ErrorCode::MissingDeveloperSignature, "Package doesn't have developer signature"}));
  EXPECT_EQ(raisedBy([&] { developerCertificate(cmses); }),
            (Raised{ErrorCode::MissingDeveloperSignature, "Package doesn't have developer certificate"}));
}

} // namespace
