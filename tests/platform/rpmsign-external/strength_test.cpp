// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/signing/authority.h"

namespace {

using PackageSignatures::FileWithCmses;
using PackageSignatures::SigningKey;

const std::string arc = Support::krvArc;
const std::vector<std::string> ofAnAuthority = Support::ofAnAuthority;

/// Tests which certificates are strong enough. Each test has its own trusted authority "root".
class Strength : public PackageTest {
protected:
  std::filesystem::path trusted() const { return m_root.trusted(); }
  std::string pem(const std::string& name) const { return m_root.pem(name); }
  std::string key(const std::string& name) const { return m_root.key(name); }
  std::string hashOf(const std::string& name) const { return m_root.hashOf(name); }

  void certify(const std::string& name, const Support::CertificateRequest& request = {}) const {
    m_root.certify(name, request);
  }
  void trust(const std::string& name) const { m_root.trust(name); }
  void publishList(const std::string& authority, const std::vector<std::string>& options = {"-crldays", "30"}) const {
    m_root.publishList(authority, options);
  }
  void revoke(const std::string& name) const { m_root.revoke(name); }

  SigningKey signingKey(const std::string& name) const { return SigningKey::load(key(name), pem(name)); }

  /// Whether a package signed by `name` verifies, with the certificate of `chain` as an intermediate.
  bool accepts(const std::string& name, const std::string& chain = "") const {
    PackageSignatures::signPackage(
        package(), {.key = signingKey(name), .previous = {}, .chainPath = chain.empty() ? "" : pem(chain)});
    const auto file = FileWithCmses::fromPath(package());
    const bool verified = verifiesAgainst(*file, trusted().c_str());
    EXPECT_EQ(file->cmses().at(0).certificate()->verify(trusted().c_str()), verified) << name;
    return verified;
  }

  /// Whether a package verifies that a good key signed, with `name` as the earlier key.
  bool acceptsEarlier(const std::string& name, const std::string& chain = "") const {
    if (!std::filesystem::exists(pem("good")))
      certify("good");
    PackageSignatures::signPackage(
        package(),
        {.key = signingKey("good"), .previous = {signingKey(name)}, .chainPath = chain.empty() ? "" : pem(chain)});
    const auto file = FileWithCmses::fromPath(package());
    EXPECT_TRUE(file->cmses().at(0).certificate()->verify(trusted().c_str())) << name;
    return verifiesAgainst(*file, trusted().c_str());
  }

private:
  Support::Authority m_root{inSandbox("root")};
};

TEST_F(Strength, AcceptsKeysAndDigestsOf112Bits) {
  for (const char* key : {"ec", "rsa:2048"}) {
    certify("alice", {.key = key});
    EXPECT_TRUE(accepts("alice")) << key;
    EXPECT_TRUE(acceptsEarlier("alice")) << key;
  }
}

TEST_F(Strength, RefusesAShortKey) {
  for (const char* key : {"rsa:512", "rsa:1024"}) {
    certify("alice", {.key = key});
    EXPECT_FALSE(accepts("alice")) << key;
    EXPECT_FALSE(acceptsEarlier("alice")) << key;
  }
}

TEST_F(Strength, RefusesACertificateThatIsSignedWithSha1) {
  certify("alice", {.digest = "sha1"});
  EXPECT_FALSE(accepts("alice"));
  EXPECT_FALSE(acceptsEarlier("alice"));
}

TEST_F(Strength, RefusesAnAuthorityWithAShortKey) {
  certify("weak", {.authority = "", .key = "rsa:1024", .extensions = ofAnAuthority});
  trust("weak");
  certify("alice", {.authority = "weak"});
  EXPECT_FALSE(accepts("alice"));
  EXPECT_FALSE(acceptsEarlier("alice"));
}

TEST_F(Strength, NeedsAKeyForSignatures) {
  const struct {
    const char* usage;
    bool accepted;
  } cases[] = {
      {"digitalSignature", true},       {"critical,digitalSignature,keyEncipherment", true},
      {"keyEncipherment", false},       {"nonRepudiation", false},
      {"critical,keyAgreement", false},
  };
  for (const auto& [usage, accepted] : cases) {
    certify("alice", {.extensions = {"extendedKeyUsage=" + arc + ".1", std::string("keyUsage=") + usage}});
    EXPECT_EQ(accepts("alice"), accepted) << usage;
    EXPECT_EQ(acceptsEarlier("alice"), accepted) << usage;
  }
}

TEST_F(Strength, NeedsAuthoritiesThatMayGiveTheRole) {
  certify("alice");
  const struct {
    std::string usage;
    bool accepted;
  } cases[] = {
      {arc + ".1", true},  {arc + ".2," + arc + ".1", true}, {"anyExtendedKeyUsage", true},
      {arc + ".2", false}, {"codeSigning", false},           {arc, false},
  };
  for (const auto& [usage, accepted] : cases) {
    std::vector<std::string> extensions = ofAnAuthority;
    extensions.push_back("extendedKeyUsage=" + usage);
    certify("middle", {.extensions = extensions});
    certify("alice", {.authority = "middle"});
    EXPECT_EQ(accepts("alice", "middle"), accepted) << usage;
    EXPECT_EQ(acceptsEarlier("alice", "middle"), accepted) << usage;
  }
}

TEST_F(Strength, NeedsATrustedAuthorityThatMayGiveTheRole) {
  std::vector<std::string> extensions = ofAnAuthority;
  extensions.push_back("extendedKeyUsage=" + arc + ".2");
  certify("sources", {.authority = "", .extensions = extensions});
  trust("sources");
  certify("alice", {.authority = "sources"});
  EXPECT_FALSE(accepts("alice"));
  EXPECT_FALSE(acceptsEarlier("alice"));
  certify("store", {.authority = "sources", .extensions = {"extendedKeyUsage=" + arc + ".2"}});
  PackageSignatures::replaceContainer(package(), "");
  EXPECT_TRUE(accepts("store"));
}

TEST_F(Strength, RefusesARevokedCertificate) {
  certify("alice");
  certify("bob");
  revoke("alice");
  EXPECT_TRUE(accepts("alice")) << "no list yet";
  publishList("root");
  EXPECT_FALSE(accepts("alice"));
  EXPECT_FALSE(acceptsEarlier("alice"));
  EXPECT_TRUE(accepts("bob"));
  EXPECT_TRUE(acceptsEarlier("bob"));
}

TEST_F(Strength, RefusesCertificatesOfARevokedAuthority) {
  certify("middle", {.extensions = ofAnAuthority});
  certify("alice", {.authority = "middle"});
  publishList("root");
  EXPECT_TRUE(accepts("alice", "middle")) << "the authority in between has no list";
  EXPECT_TRUE(acceptsEarlier("alice", "middle"));
  revoke("middle");
  publishList("root");
  EXPECT_FALSE(accepts("alice", "middle"));
  EXPECT_FALSE(acceptsEarlier("alice", "middle"));
}

TEST_F(Strength, RefusesCertificatesOfAnAuthorityWithAnInvalidList) {
  certify("alice");
  certify("imitation", {.authority = "", .extensions = ofAnAuthority});
  const std::filesystem::path list = trusted() / (hashOf("root") + ".r0");
  certify("bob");

  publishList("root", {"-crl_lastupdate", "20000101000000Z", "-crl_nextupdate", "20010101000000Z"});
  EXPECT_FALSE(accepts("alice")) << "an expired list";
  publishList("root", {"-crl_lastupdate", "20990101000000Z", "-crl_nextupdate", "20991231000000Z"});
  EXPECT_FALSE(accepts("alice")) << "a list of the future";
  publishList("imitation");
  std::filesystem::rename(trusted() / (hashOf("imitation") + ".r0"), list);
  EXPECT_FALSE(accepts("alice")) << "the list of another authority";
  Support::writeFile(list, "no list\n");
  EXPECT_FALSE(accepts("alice")) << "something else";
  Support::writeFile(list, "");
  EXPECT_FALSE(accepts("alice")) << "an empty file";
  std::filesystem::remove(list);
  std::filesystem::create_symlink("nowhere", list);
  EXPECT_FALSE(accepts("alice")) << "a dangling symlink";
  std::filesystem::remove(list);
  EXPECT_TRUE(accepts("alice")) << "none";
}

TEST_F(Strength, RefusesAnEarlierKeyWhoseAuthorityHasAnExpiredList) {
  certify("former", {.authority = "", .extensions = ofAnAuthority});
  trust("former");
  certify("alice", {.authority = "former"});
  EXPECT_TRUE(acceptsEarlier("alice"));
  publishList("former", {"-crl_lastupdate", "20000101000000Z", "-crl_nextupdate", "20010101000000Z"});
  EXPECT_FALSE(acceptsEarlier("alice"));
  publishList("former");
  EXPECT_TRUE(acceptsEarlier("alice"));
}

} // namespace
