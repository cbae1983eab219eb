// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/process/process.h"

namespace {

using PackageSignatures::FileWithCmses;
using PackageSignatures::Signer;
using PackageSignatures::SigningKey;

const std::string arc = "2.25.157019916226857759528849042802738373896";

/// The properties of a certificate.
struct Request {
  std::string authority = "root"; ///< empty for a self-signed certificate
  std::string key = "ec";
  std::string digest = "sha256";
  std::vector<std::string> extensions = {"extendedKeyUsage=" + arc + ".1"};
};

const std::vector<std::string> ofAnAuthority = {"basicConstraints=critical,CA:TRUE", "keyUsage=keyCertSign,cRLSign"};

/// Tests which certificates are strong enough. Each test has its own trusted authority "root".
class Strength : public PackageTest {
protected:
  Strength() {
    Support::writeFile(inSandbox("config"), R"([req]
distinguished_name = subject
[subject]
[ca]
default_ca = lists
[lists]
default_md = sha256
)"
                                            "database = " +
                                                inSandbox("index") + "\n");
    Support::writeFile(inSandbox("index"), "");
    std::filesystem::create_directory(trusted());
    certify("root", {.authority = "", .extensions = ofAnAuthority});
    trust("root");
  }

  std::filesystem::path trusted() const { return inSandbox("trusted"); }
  std::string pem(const std::string& name) const { return inSandbox(name + ".pem"); }
  std::string key(const std::string& name) const { return inSandbox(name + ".key.pem"); }

  void certify(const std::string& name, const Request& request = {}) const {
    std::vector<std::string> command = {
        "openssl", "req",     "-x509", "-config", inSandbox("config"),  "-noenc", "-newkey",    request.key,
        "-keyout", key(name), "-out",  pem(name), "-" + request.digest, "-subj",  "/CN=" + name};
    if (request.key == "ec")
      command.insert(command.end(), {"-pkeyopt", "ec_paramgen_curve:P-256"});
    if (!request.authority.empty())
      command.insert(command.end(), {"-CA", pem(request.authority), "-CAkey", key(request.authority)});
    for (const std::string& extension : request.extensions)
      command.insert(command.end(), {"-addext", extension});
    Support::runOrThrow(command);
  }

  std::string hashOf(const std::string& name) const {
    return Support::runOrThrow({"openssl", "x509", "-in", pem(name), "-noout", "-subject_hash"}).substr(0, 8);
  }

  void trust(const std::string& name) const {
    std::filesystem::copy_file(pem(name), trusted() / (hashOf(name) + ".0"));
  }

  /// Writes the authority's current revocation list into the folder, over an existing one. `options` are those of
  /// `openssl ca`.
  void publishList(const std::string& authority, const std::vector<std::string>& options = {"-crldays", "30"}) const {
    std::vector<std::string> command = {"openssl",
                                        "ca",
                                        "-gencrl",
                                        "-config",
                                        inSandbox("config"),
                                        "-cert",
                                        pem(authority),
                                        "-keyfile",
                                        key(authority),
                                        "-out",
                                        trusted() / (hashOf(authority) + ".r0")};
    command.insert(command.end(), options.begin(), options.end());
    Support::runOrThrow(command);
  }

  void revoke(const std::string& name) const {
    Support::runOrThrow({"openssl", "ca", "-config", inSandbox("config"), "-cert", pem("root"), "-keyfile", key("root"),
                         "-revoke", pem(name)});
  }

  SigningKey signingKey(const std::string& name) const { return SigningKey::fromFiles(key(name), pem(name)); }

  /// Whether a package signed by `name` verifies, with the certificate of `chain` as an intermediate.
  bool accepts(const std::string& name, const std::string& chain = "") const {
    PackageSignatures::signPackage(
        package(), {.key = signingKey(name), .previous = {}, .chainPath = chain.empty() ? "" : pem(chain)});
    const auto file = FileWithCmses::fromPath(package());
    const bool verified = file->verifyCmses(trusted().c_str());
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
    return file->verifyCmses(trusted().c_str());
  }
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
