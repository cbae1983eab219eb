// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/process/process.h"
#include "tests/support/signing/authority.h"

#include <gmock/gmock.h>
#include <rpmsign-external/verification.h>

#include <fstream>

#include <fcntl.h>
#include <unistd.h>

namespace {

using PackageSignatures::CmsVerification;
using PackageSignatures::FileDigest;
using PackageSignatures::FileWithCmses;
using PackageSignatures::Problem;
using PackageSignatures::Role;
using PackageSignatures::SigningKey;
using PackageSignatures::Verification;
using PackageSignatures::verifyPackage;

using Problems = std::set<Problem>;

constexpr std::time_t start2000 = 946684800;  // 2000-01-01
constexpr std::time_t middle2000 = 962409600; // 2000-07-01
constexpr std::time_t start2001 = 978307200;  // 2001-01-01

/// Each test has its own trusted authority "root".
class Diagnosis : public PackageTest {
protected:
  const Support::Authority& root() const { return m_root; }

  SigningKey key(const std::string& name) const { return SigningKey::load(root().key(name), root().pem(name)); }

  /// Signs the package with a certificate of "root" and the certificate `chain` as an intermediate.
  void signAs(const std::string& name, const std::vector<std::string>& previous = {},
              const std::string& chain = "") const {
    PackageSignatures::Signer signer{.key = key(name), .chainPath = chain.empty() ? "" : root().pem(chain)};
    for (const std::string& earlier : previous)
      signer.previous.push_back(key(earlier));
    PackageSignatures::signPackage(package(), signer);
  }

  Verification diagnosed(std::optional<std::time_t> at = {}, const std::string& caPath = "") const {
    const auto file = FileWithCmses::fromPath(package());
    const std::string folder = caPath.empty() ? root().trusted().string() : caPath;
    if (!at)
      verifiesAgainst(*file, folder.c_str());
    return verifyPackage(*file, {.caPath = folder.c_str(), .at = at});
  }

  /// The problems of the only CMS; the file itself must have none.
  Problems problems(std::optional<std::time_t> at = {}) const {
    const Verification verification = diagnosed(at);
    EXPECT_EQ(verification.problems, Problems());
    return verification.cmses.size() == 1 ? verification.cmses.front().problems : Problems{Problem::Unsigned};
  }

  /// The problems of a package that was signed by "good" with `earlier` as the key before it.
  Problems problemsOfEarlier(const std::string& earlier) const {
    root().certify("good");
    signAs("good", {earlier});
    const CmsVerification cms = diagnosed().cmses.at(0);
    EXPECT_EQ(cms.problems.contains(Problem::RotationBroken), !cms.earlierKeys.at(0).problems.empty());
    EXPECT_EQ(cms.earlierKeys.at(0).keyId, key(earlier).keyId());
    return cms.earlierKeys.at(0).problems;
  }

private:
  Support::Authority m_root{inSandbox("root")};
};

/// Returns the openssl program's output for one field of a certificate, without the label.
std::string printed(const std::string& certificate, const std::string& what) {
  const std::string line =
      Support::runOrThrow({"openssl", "x509", "-in", certificate, "-noout", "-nameopt", "RFC2253", what});
  const std::size_t label = line.find('=') + 1;
  return line.substr(label, line.size() - label - 1);
}

std::string dateOf(std::optional<std::time_t> time) {
  std::tm parts{};
  gmtime_r(&time.value(), &parts);
  char text[40];
  return {text, std::strftime(text, sizeof text, "%b %e %H:%M:%S %Y GMT", &parts)};
}

TEST_F(Diagnosis, DescribesEachSigner) {
  std::vector<std::string> extensions = Support::ofAnAuthority;
  root().certify("middle", {.extensions = extensions});
  root().certify("alice");
  root().certify("alice-2", {.authority = "middle", .subject = "/O=A, \"B\"/OU=system/CN=\xc3\xa9\x1b[31m"});
  signAs("alice-2", {"alice"}, "middle");
  const Verification verification = diagnosed();
  EXPECT_TRUE(verification.isGood());
  ASSERT_EQ(verification.cmses.size(), 1U);
  const CmsVerification& cms = verification.cmses.front();
  EXPECT_EQ(cms.role, Role::Developer);
  EXPECT_EQ(cms.keyId, key("alice-2").keyId());
  EXPECT_EQ(cms.subgroup, PackageSignatures::Subgroup::System);
  EXPECT_EQ(cms.subject, R"(CN=\C3\A9\1B[31m,OU=system,O=A\, \"B\")");
  EXPECT_EQ(cms.subject, printed(root().pem("alice-2"), "-subject"));
  EXPECT_EQ(cms.issuer, "CN=middle");
  EXPECT_EQ(dateOf(cms.notBefore), printed(root().pem("alice-2"), "-startdate"));
  EXPECT_EQ(dateOf(cms.notAfter), printed(root().pem("alice-2"), "-enddate"));
  ASSERT_EQ(cms.earlierKeys.size(), 1U);
  EXPECT_EQ(cms.earlierKeys[0].keyId, key("alice").keyId());
}

TEST_F(Diagnosis, TellsTheFirstEndOfTheAuthorities) {
  root().certify("middle", {.extensions = Support::ofAnAuthority, .days = 3});
  root().certify("alice", {.authority = "middle", .days = 2});
  signAs("alice", {}, "middle");
  EXPECT_EQ(dateOf(diagnosed().cmses.at(0).authoritiesNotAfter), printed(root().pem("middle"), "-enddate"));
  root().certify("bob", {.days = 2});
  signAs("bob");
  EXPECT_EQ(dateOf(diagnosed().cmses.at(0).authoritiesNotAfter), printed(root().pem("root"), "-enddate"));
  EXPECT_EQ(diagnosed({}, inSandbox("missing")).cmses.at(0).authoritiesNotAfter, std::nullopt);
}

TEST_F(Diagnosis, FindsNoSignature) {
  const Verification verification = diagnosed();
  EXPECT_EQ(verification.problems, Problems{Problem::Unsigned});
  EXPECT_TRUE(verification.cmses.empty());
  EXPECT_FALSE(verification.isGood());
}

TEST_F(Diagnosis, FindsSignersWithoutARole) {
  root().certify("nobody", {.extensions = {"extendedKeyUsage=codeSigning"}});
  root().certify("both", {.extensions = {"extendedKeyUsage=" + Support::krvArc + ".1," + Support::krvArc + ".2"}});
  for (const char* name : {"nobody", "both"}) {
    PackageSignatures::replaceContainer(package(),
                                        opensslCms({"-signer", root().pem(name), "-inkey", root().key(name)}));
    EXPECT_EQ(problems(), Problems{Problem::RoleMissing}) << name;
    EXPECT_EQ(diagnosed().cmses.at(0).role, std::nullopt);
  }
}

TEST_F(Diagnosis, FindsARoleTwice) {
  std::string container;
  for (const char* name : {"alice", "source", "bob"})
    container += PackageSignatures::makeCms(package(), pki().signer(name));
  PackageSignatures::replaceContainer(package(), container);
  const Verification verification = diagnosed({}, pki().trustedCa());
  ASSERT_EQ(verification.cmses.size(), 3U);
  EXPECT_EQ(verification.cmses[0].problems, Problems{Problem::RoleTwice});
  EXPECT_EQ(verification.cmses[1].problems, Problems());
  EXPECT_EQ(verification.cmses[2].problems, Problems{Problem::RoleTwice});
  EXPECT_EQ(verification.cmses[1].role, Role::Source);
}

TEST_F(Diagnosis, FindsAnUnknownAuthority) {
  Support::sign(package(), "alice");
  EXPECT_EQ(problems(), Problems{Problem::Untrusted});
  for (const std::string& folder : {inSandbox("missing"), root().pem("root"), sandbox().path().string()})
    EXPECT_EQ(diagnosed({}, folder).cmses.at(0).problems, Problems{Problem::Untrusted}) << folder;
}

TEST_F(Diagnosis, FindsAnAuthorityThatIsNone) {
  root().certify("bob");
  root().certify("alice", {.authority = "bob"});
  signAs("alice", {}, "bob");
  EXPECT_EQ(problems(), Problems{Problem::Untrusted});
}

TEST_F(Diagnosis, FindsATamperedCertificate) {
  root().certify("alice");
  signAs("alice");
  PackageSignatures::replaceContainer(package(), replaced(container(),
                                                          "\x0c\x05"
                                                          "alice",
                                                          "\x0c\x05"
                                                          "alicf"));
  EXPECT_EQ(diagnosed().cmses.at(0).subject, "CN=alicf");
  EXPECT_EQ(problems(), (Problems{Problem::Untrusted, Problem::SignatureBroken}));
}

TEST_F(Diagnosis, JudgesDatesByTheGivenTime) {
  root().certifyBetween("old-root", "19990101000000Z", "20490101000000Z", "authority", "");
  root().trust("old-root");
  root().certifyBetween("alice", "20000101000000Z", "20010101000000Z", "developer", "old-root");
  signAs("alice");
  EXPECT_EQ(problems(), Problems{Problem::Expired});
  EXPECT_EQ(problems(start2000 - 1), Problems{Problem::NotYetValid});
  EXPECT_EQ(problems(start2000), Problems());
  EXPECT_EQ(problems(middle2000), Problems());
  EXPECT_EQ(problems(start2001 - 1), Problems());
  EXPECT_EQ(problems(start2001 + 1), Problems{Problem::Expired});
  EXPECT_TRUE(diagnosed(middle2000).isGood());
  const CmsVerification cms = diagnosed().cmses.at(0);
  EXPECT_EQ(cms.notBefore, start2000);
  EXPECT_EQ(cms.notAfter, start2001);
}

TEST_F(Diagnosis, FindsACertificateOfTheFuture) {
  root().certifyBetween("alice", "20980101000000Z", "20990101000000Z");
  signAs("alice");
  EXPECT_EQ(problems(), Problems{Problem::NotYetValid});
}

TEST_F(Diagnosis, FindsAnExpiredAuthority) {
  root().certifyBetween("middle", "20000101000000Z", "20010101000000Z", "authority");
  root().certify("alice", {.authority = "middle"});
  signAs("alice", {}, "middle");
  EXPECT_EQ(problems(), Problems{Problem::Expired});
  EXPECT_EQ(diagnosed().cmses.at(0).authoritiesNotAfter, start2001);
}

TEST_F(Diagnosis, IgnoresTheDatesOfEarlierKeys) {
  root().certifyBetween("alice", "20000101000000Z", "20010101000000Z");
  EXPECT_EQ(problemsOfEarlier("alice"), Problems());
}

TEST_F(Diagnosis, FindsARevokedCertificate) {
  root().certify("alice");
  root().revoke("alice");
  signAs("alice");
  EXPECT_EQ(problems(), Problems());
  root().publishList("root");
  EXPECT_EQ(problems(), Problems{Problem::Revoked});
  EXPECT_EQ(problemsOfEarlier("alice"), Problems{Problem::Revoked});
}

TEST_F(Diagnosis, FindsARevokedAuthority) {
  root().certify("middle", {.extensions = Support::ofAnAuthority});
  root().certify("alice", {.authority = "middle"});
  root().revoke("middle");
  root().publishList("root");
  signAs("alice", {}, "middle");
  EXPECT_EQ(problems(), Problems{Problem::Revoked});
}

TEST_F(Diagnosis, FindsAnUnusableRevocationList) {
  root().certify("alice");
  root().certify("imitation", {.authority = "", .extensions = Support::ofAnAuthority, .subject = "/CN=root"});
  signAs("alice");
  const std::filesystem::path list = root().trusted() / (root().hashOf("root") + ".r0");
  root().publishList("root", {"-crl_lastupdate", "20000101000000Z", "-crl_nextupdate", "20010101000000Z"});
  EXPECT_EQ(problems(), Problems{Problem::RevocationListUnusable}) << "expired";
  EXPECT_EQ(problemsOfEarlier("alice"), Problems{Problem::RevocationListUnusable}) << "expired";
  signAs("alice");
  root().publishList("root", {"-crl_lastupdate", "20980101000000Z", "-crl_nextupdate", "20990101000000Z"});
  EXPECT_EQ(problems(), Problems{Problem::RevocationListUnusable}) << "of the future";
  root().publishList("imitation");
  EXPECT_EQ(problems(), Problems{Problem::RevocationListUnusable}) << "forged";
  // OpenSSL takes the files of the folder in the order of the file system and stops at one that it cannot read. On a
  // tmpfs, where the newest file is the first one, it does not find the authority then.
  const auto isUnusable = testing::AnyOf(Problems{Problem::RevocationListUnusable},
                                         Problems{Problem::Untrusted, Problem::RevocationListUnusable});
  Support::writeFile(list, "no list\n");
  EXPECT_THAT(problems(), isUnusable) << "something else";
  std::filesystem::remove(list);
  std::filesystem::create_symlink("nowhere", list);
  EXPECT_THAT(problems(), isUnusable) << "a dangling symlink";
}

TEST_F(Diagnosis, JudgesRevocationListsByTheGivenTime) {
  root().certifyBetween("old-root", "19990101000000Z", "20490101000000Z", "authority", "");
  root().trust("old-root");
  root().certifyBetween("alice", "20000101000000Z", "20490101000000Z", "developer", "old-root");
  root().publishList("old-root", {"-crl_lastupdate", "20000101000000Z", "-crl_nextupdate", "20010101000000Z"});
  signAs("alice");
  EXPECT_EQ(problems(), Problems{Problem::RevocationListUnusable});
  EXPECT_EQ(problems(middle2000), Problems());
}

TEST_F(Diagnosis, FindsWeakKeysAndDigests) {
  root().certify("alice", {.key = "rsa:1024"});
  signAs("alice");
  EXPECT_EQ(problems(), Problems{Problem::Weak}) << "the signer's key";
  EXPECT_EQ(problemsOfEarlier("alice"), Problems{Problem::Weak});
  root().certify("bob", {.digest = "sha1"});
  signAs("bob");
  EXPECT_EQ(problems(), Problems{Problem::Weak}) << "the certificate's digest";
  root().certify("weak", {.authority = "", .key = "rsa:1024", .extensions = Support::ofAnAuthority});
  root().trust("weak");
  root().certify("carol", {.authority = "weak"});
  signAs("carol");
  EXPECT_EQ(problems(), Problems{Problem::Weak}) << "the authority's key";
}

TEST_F(Diagnosis, FindsForbiddenUsages) {
  root().certify("alice", {.extensions = {"extendedKeyUsage=" + Support::krvArc + ".1", "keyUsage=keyEncipherment"}});
  signAs("alice");
  EXPECT_EQ(problems(), Problems{Problem::UsageForbidden}) << "the signer's key usage";
  EXPECT_EQ(problemsOfEarlier("alice"), Problems{Problem::UsageForbidden});
  std::vector<std::string> extensions = Support::ofAnAuthority;
  extensions.push_back("extendedKeyUsage=" + Support::krvArc + ".2");
  root().certify("sources", {.extensions = extensions});
  root().certify("bob", {.authority = "sources"});
  signAs("bob", {}, "sources");
  EXPECT_EQ(problems(), Problems{Problem::UsageForbidden}) << "an authority of sources only";
}

TEST_F(Diagnosis, FindsABrokenSignature) {
  root().certify("alice");
  signAs("alice");
  Support::writeFile(package(), Support::readFile(package()) + '\n');
  EXPECT_EQ(problems(), Problems{Problem::SignatureBroken});
}

TEST_F(Diagnosis, FindsABrokenRotation) {
  root().certify("alice");
  root().certify("store", {.extensions = {"extendedKeyUsage=" + Support::krvArc + ".2"}});
  signAs("alice");
  const std::string sequence = der('\x30', der('\x04', "no CMS"));
  Support::sign(package(), "bob");
  PackageSignatures::replaceContainer(package(), cmsWithAttribute("bob", {Support::krvArc + ".3", {sequence}}));
  const CmsVerification cms = diagnosed({}, pki().trustedCa()).cmses.at(0);
  EXPECT_EQ(cms.problems, Problems{Problem::RotationBroken});
  EXPECT_TRUE(cms.earlierKeys.empty());
}

TEST_F(Diagnosis, FindsTheEarlierKeyThatBreaksTheRotation) {
  // Both links are for the key of "carol", but that of "alice" stands before "bob".
  for (const char* name : {"alice", "bob", "carol"})
    root().certify(name);
  const std::string text = "krv-key-rotation:" + key("carol").keyId();
  Support::writeFile(inSandbox("text"), text);
  std::string links;
  for (const char* name : {"alice", "bob"})
    links += der('\x04', opensslCms({"-signer", root().pem(name), "-inkey", root().key(name), "-nodetach"}, "text"));
  PackageSignatures::replaceContainer(package(), cmsWithAttribute(root().pem("carol"), root().key("carol"),
                                                                  {Support::krvArc + ".3", {der('\x30', links)}}));
  const CmsVerification cms = diagnosed().cmses.at(0);
  EXPECT_EQ(cms.problems, Problems{Problem::RotationBroken});
  ASSERT_EQ(cms.earlierKeys.size(), 2U);
  EXPECT_EQ(cms.earlierKeys[0].keyId, key("alice").keyId());
  EXPECT_EQ(cms.earlierKeys[0].problems, Problems{Problem::SignatureBroken});
  EXPECT_EQ(cms.earlierKeys[1].problems, Problems());
}

TEST_F(Diagnosis, FindsAnEarlierKeyThatIsNoDevelopers) {
  const std::string text = "krv-key-rotation:" + pki().keyId("bob");
  Support::writeFile(inSandbox("text"), text);
  const std::string links = der('\x04', opensslCms({"SIGNER:source", "-nodetach"}, "text"));
  PackageSignatures::replaceContainer(package(),
                                      cmsWithAttribute("bob", {Support::krvArc + ".3", {der('\x30', links)}}));
  const CmsVerification cms = diagnosed({}, pki().trustedCa()).cmses.at(0);
  EXPECT_EQ(cms.earlierKeys.at(0).problems, Problems{Problem::RoleMissing});
}

TEST_F(Diagnosis, FindsContentThatIsNoHeader) {
  root().certify("alice");
  signAs("alice");
  const auto offset = static_cast<std::size_t>(PackageSignatures::packageLayout(package()).contentOffset);
  const std::string good = Support::readFile(package());
  for (const std::string& content : {std::string(), std::string("\x8e\xad\xe8", 3), "x" + good.substr(offset)}) {
    Support::writeFile(package(), good.substr(0, offset) + content);
    const Verification verification = diagnosed();
    EXPECT_EQ(verification.problems, Problems{Problem::ContentIsNoHeader});
    EXPECT_EQ(verification.cmses.at(0).problems, Problems());
  }
}

TEST_F(Diagnosis, FindsEveryProblemAtOnce) {
  root().certifyBetween("alice", "20000101000000Z", "20010101000000Z", "store");
  root().revoke("alice");
  root().publishList("root");
  root().certify("bob", {.extensions = {"extendedKeyUsage=codeSigning", "keyUsage=keyEncipherment"}});
  PackageSignatures::replaceContainer(package(),
                                      opensslCms({"-signer", root().pem("alice"), "-inkey", root().key("alice")}) +
                                          opensslCms({"-signer", root().pem("bob"), "-inkey", root().key("bob")}) +
                                          opensslCms({"SIGNER:source"}));
  Support::writeFile(package(), Support::readFile(package()) + '\n');
  const Verification verification = diagnosed();
  EXPECT_EQ(verification.problems, Problems());
  ASSERT_EQ(verification.cmses.size(), 3U);
  EXPECT_EQ(verification.cmses[0].problems,
            (Problems{Problem::RoleTwice, Problem::Expired, Problem::Revoked, Problem::SignatureBroken}));
  EXPECT_EQ(verification.cmses[1].problems,
            (Problems{Problem::RoleMissing, Problem::UsageForbidden, Problem::SignatureBroken}));
  EXPECT_EQ(verification.cmses[2].problems,
            (Problems{Problem::RoleTwice, Problem::Untrusted, Problem::SignatureBroken}));
}

TEST_F(Diagnosis, GivesTheDigestOfTheFileFromOneRead) {
  Support::writeFile(package(), Support::readFile(package()) + std::string(4 * 1024 * 1024, 'x'));
  root().certify("alice");
  signAs("alice");
  const auto file = FileWithCmses::fromPath(package());
  const auto bytesRead = [] {
    std::ifstream statistics("/proc/self/io");
    std::string name;
    std::size_t bytes = 0;
    statistics >> name >> bytes; // the first line: "rchar: N"
    return bytes;
  };
  const std::size_t before = bytesRead();
  const std::string folder = root().trusted();
  const Verification verification =
      verifyPackage(*file, {.caPath = folder.c_str(), .fileDigest = FileDigest::Computed});
  EXPECT_LT(bytesRead() - before, 5U * 1024 * 1024);
  EXPECT_TRUE(verification.isGood());
  EXPECT_EQ(verification.fileDigest, Support::runOrThrow({"sha256sum", package()}).substr(0, 64));
  EXPECT_EQ(diagnosed().fileDigest, std::nullopt);
}

TEST_F(Diagnosis, GivesTheDigestOfAnUnsignedFile) {
  const auto file = FileWithCmses::fromPath(package());
  const Verification verification = verifyPackage(*file, {.caPath = "", .fileDigest = FileDigest::Computed});
  EXPECT_EQ(verification.problems, Problems{Problem::Unsigned});
  EXPECT_EQ(verification.fileDigest, Support::runOrThrow({"sha256sum", package()}).substr(0, 64));
}

TEST_F(Diagnosis, OpensADescriptorAndLeavesItAlone) {
  root().certify("alice");
  signAs("alice");
  const int descriptor = open(package().c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(descriptor, 0);
  ASSERT_EQ(lseek(descriptor, 7, SEEK_SET), 7);
  const auto file = PackageSignatures::packageFromDescriptor(descriptor);
  ASSERT_TRUE(file);
  EXPECT_EQ(lseek(descriptor, 0, SEEK_CUR), 7);
  EXPECT_EQ(close(descriptor), 0);
  EXPECT_TRUE(verifiesAgainst(*file, root().trusted().c_str()));
}

TEST_F(Diagnosis, OpensNoDescriptorOfAnythingElse) {
  EXPECT_EQ(PackageSignatures::packageFromDescriptor(-1), nullptr);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  EXPECT_EQ(PackageSignatures::packageFromDescriptor(ends[0]), nullptr);
  close(ends[0]);
  close(ends[1]);
}

} // namespace
