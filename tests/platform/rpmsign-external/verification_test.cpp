// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/process/environment.h"
#include "tests/support/process/process.h"

#include <fstream>

namespace {

using PackageSignatures::FileWithCmses;
using PackageSignatures::replaceContainer;
using PackageSignatures::signPackage;

std::size_t bytesReadByThisProcess() {
  std::ifstream statistics("/proc/self/io");
  std::string name;
  std::size_t bytes = 0;
  statistics >> name >> bytes; // the first line: "rchar: N"
  return bytes;
}

class Verification : public PackageTest {
protected:
  std::size_t contentOffset() const {
    return static_cast<std::size_t>(PackageSignatures::packageLayout(package()).contentOffset);
  }

  bool verifiesAgainst(const char* caPath) const {
    return PackageTest::verifiesAgainst(*FileWithCmses::fromPath(package()), caPath);
  }
};

TEST_F(Verification, AcceptsADeveloper) {
  Support::sign(package(), "alice");
  EXPECT_TRUE(verifies());
}

TEST_F(Verification, AcceptsADeveloperAndASource) {
  Support::sign(package(), "alice");
  Support::sign(package(), "source");
  EXPECT_TRUE(verifies());
}

TEST_F(Verification, AcceptsASourceWithoutADeveloper) {
  Support::sign(package(), "source");
  EXPECT_TRUE(verifies());
}

TEST_F(Verification, GivesTheSameAnswerTwice) {
  Support::sign(package(), "alice-2", {"alice"});
  const auto file = FileWithCmses::fromPath(package());
  EXPECT_TRUE(file->verifyCmses(pki().trustedCa().c_str()));
  EXPECT_TRUE(file->verifyCmses(pki().trustedCa().c_str()));
  EXPECT_FALSE(file->verifyCmses("/"));
}

TEST_F(Verification, RefusesAPackageWithoutSignatures) {
  EXPECT_FALSE(verifies());
}

TEST_F(Verification, RefusesChangedContent) {
  Support::sign(package(), "alice");
  const std::string good = Support::readFile(package());
  for (const std::size_t offset : {contentOffset(), contentOffset() + 100, good.size() - 1}) {
    Support::writeFile(package(), flipped(good, 8 * offset));
    EXPECT_FALSE(verifies()) << offset;
  }
  Support::writeFile(package(), good + '\n');
  EXPECT_FALSE(verifies()) << "something added";
  Support::writeFile(package(), good.substr(0, good.size() - 1));
  EXPECT_FALSE(verifies()) << "something cut off";
  Support::writeFile(package(), good);
  EXPECT_TRUE(verifies());
}

TEST_F(Verification, DoesNotCoverTheBytesBeforeTheContent) {
  Support::sign(package(), "alice");
  const std::size_t nameInTheLead = 20;
  Support::writeFile(package(), flipped(Support::readFile(package()), 8 * nameInTheLead));
  EXPECT_TRUE(verifies());
}

TEST_F(Verification, DistinguishesLineEnds) {
  sandbox().build(
      {.install = R"(mkdir -p %{buildroot}/opt/%{name}; printf 'a\nb\r\nc' > %{buildroot}/opt/%{name}/file)",
       .globals = "%global _binary_payload w.ufdio"},
      package());
  Support::sign(package(), "alice");
  EXPECT_TRUE(verifies());
  Support::writeFile(package(), replaced(Support::readFile(package()), "a\nb\r\nc", "a\r\nb\nc"));
  EXPECT_FALSE(verifies());
}

TEST_F(Verification, RefusesTheSignatureOfAnotherPackage) {
  sandbox().build({.name = "other"}, inSandbox("other.rpm"));
  replaceContainer(package(), PackageSignatures::makeCms(inSandbox("other.rpm"), pki().signer("alice")));
  EXPECT_TRUE(isReadable());
  EXPECT_FALSE(verifies());
}

TEST_F(Verification, NeedsEverySignatureToBeValid) {
  sandbox().build({.name = "other"}, inSandbox("other.rpm"));
  const std::string good = PackageSignatures::makeCms(package(), pki().signer("alice"));
  const std::string bad = PackageSignatures::makeCms(inSandbox("other.rpm"), pki().signer("source"));
  for (const std::string& container : {good + bad, bad + good}) {
    replaceContainer(package(), container);
    EXPECT_FALSE(verifies());
  }
}

TEST_F(Verification, RefusesARoleTwice) {
  const std::string alice = PackageSignatures::makeCms(package(), pki().signer("alice"));
  const std::string bob = PackageSignatures::makeCms(package(), pki().signer("bob"));
  const std::string source = PackageSignatures::makeCms(package(), pki().signer("source"));
  for (const std::string& container : {bob + alice, alice + bob, alice + alice, alice + source + source}) {
    replaceContainer(package(), container);
    EXPECT_FALSE(verifies());
  }
  replaceContainer(package(), source + alice);
  EXPECT_TRUE(verifies());
}

TEST_F(Verification, ReadsTheContentOnce) {
  constexpr std::size_t size = 4 * 1024 * 1024;
  Support::writeFile(package(), Support::readFile(package()) + std::string(size, 'x'));
  Support::sign(package(), "alice");
  Support::sign(package(), "source");
  const auto file = FileWithCmses::fromPath(package());
  const std::size_t before = bytesReadByThisProcess();
  EXPECT_TRUE(file->verifyCmses(pki().trustedCa().c_str()));
  EXPECT_LT(bytesReadByThisProcess() - before, size + size / 2);
}

TEST_F(Verification, RefusesContentThatIsNotAHeader) {
  const std::string file = Support::readFile(package()).substr(0, contentOffset());
  for (const std::string& content : {std::string(), std::string("text"), std::string("\x8e\xad\xe8\x01", 4),
                                     "krv-key-rotation:" + pki().keyId("bob")}) {
    Support::writeFile(inSandbox("content"), content);
    Support::writeFile(package(), file + content);
    replaceContainer(package(), opensslCms({"SIGNER:alice"}));
    EXPECT_TRUE(isReadable());
    EXPECT_FALSE(verifies()) << content;
  }
}

TEST_F(Verification, RefusesAForeignAuthority) {
  Support::sign(package(), "foreign");
  EXPECT_FALSE(verifies());
}

TEST_F(Verification, NeverTrustsAnEmbeddedAuthority) {
  PackageSignatures::Signer signer = pki().signer("foreign");
  signer.chainPath = pki().certificate("foreign-ca");
  signPackage(package(), signer);
  EXPECT_FALSE(verifies());
  EXPECT_FALSE(onlyCms().certificate()->verify(pki().trustedCa().c_str()));
}

TEST_F(Verification, UsesIntermediateCertificatesOfTheMessage) {
  Support::sign(package(), "branch");
  EXPECT_FALSE(verifies());
  EXPECT_FALSE(onlyCms().certificate()->verify(pki().trustedCa().c_str()));
  PackageSignatures::Signer signer = pki().signer("branch");
  signer.chainPath = pki().certificate("branch-ca");
  signPackage(package(), signer);
  EXPECT_TRUE(verifies());
  EXPECT_TRUE(onlyCms().certificate()->verify(pki().trustedCa().c_str()));
}

TEST_F(Verification, RefusesAnExpiredSigner) {
  for (const char* name : {"expired", "expired-source"}) {
    replaceContainer(package(), PackageSignatures::makeCms(package(), pki().signer(name)));
    EXPECT_FALSE(verifies()) << name;
    EXPECT_FALSE(onlyCms().certificate()->verify(pki().trustedCa().c_str())) << name;
  }
}

TEST_F(Verification, RefusesASignerWithoutARole) {
  for (const char* name : {"both", "roleless"}) {
    replaceContainer(package(), opensslCms({"SIGNER:" + std::string(name)}));
    EXPECT_TRUE(onlyCms().certificate()->verify(pki().trustedCa().c_str())) << name;
    EXPECT_FALSE(verifies()) << name;
  }
}

TEST_F(Verification, RefusesATamperedCertificate) {
  Support::sign(package(), "system");
  replaceContainer(package(), replaced(container(), "System developer", "System developeR"));
  EXPECT_EQ(onlyCms().certificate()->keyId(), pki().keyId("system"));
  EXPECT_FALSE(onlyCms().certificate()->verify(pki().trustedCa().c_str()));
  EXPECT_FALSE(verifies());
}

TEST_F(Verification, NeedsADirectoryOfAuthorities) {
  Support::sign(package(), "alice");
  EXPECT_FALSE(verifiesAgainst(nullptr));
  EXPECT_FALSE(verifiesAgainst(""));
  EXPECT_FALSE(verifiesAgainst(inSandbox("missing").c_str()));
  EXPECT_FALSE(verifiesAgainst(pki().certificate("ca").c_str()));
  EXPECT_FALSE(verifiesAgainst(sandbox().path().c_str()));
  EXPECT_FALSE(verifiesAgainst("file:/"));
}

TEST_F(Verification, TreatsAColonAsPartOfTheDirectoryName) {
  Support::sign(package(), "alice");
  const std::string list = "/:" + pki().trustedCa().string();
  EXPECT_FALSE(verifiesAgainst(list.c_str()));
  std::filesystem::copy(pki().trustedCa(), inSandbox("a:b"));
  EXPECT_TRUE(verifiesAgainst(inSandbox("a:b").c_str()));
}

TEST_F(Verification, VerifiesTheFileThatWasRead) {
  Support::sign(package(), "alice");
  const auto file = FileWithCmses::fromPath(package());
  sandbox().build({.name = "other"}, inSandbox("other.rpm"));
  std::filesystem::rename(inSandbox("other.rpm"), package());
  EXPECT_TRUE(file->verifyCmses(pki().trustedCa().c_str()));
  EXPECT_FALSE(verifies());
}

TEST_F(Verification, NeverAcceptsAnotherSignerAfterABitFlip) {
  Support::sign(package(), "alice-2", {"alice"});
  const std::string good = container();
  const std::size_t offset = static_cast<std::size_t>(PackageSignatures::packageLayout(package()).cmses.at(0).offset);
  const std::string file = Support::readFile(package());
  std::size_t refused = 0;
  for (std::size_t bit = 0; bit < 8 * good.size(); bit += 17) {
    Support::writeFile(package(), flipped(file, 8 * offset + bit));
    const auto changed = FileWithCmses::fromPath(package());
    if (!changed || !PackageTest::verifiesAgainst(*changed, pki().trustedCa().c_str())) {
      ++refused;
    } else {
      // A few bytes, such as version numbers, are not signed.
      EXPECT_EQ(onlyCms().certificate()->keyId(), pki().keyId("alice-2")) << bit;
      EXPECT_EQ(onlyCms().rotationChain().previousKeyids(), std::vector{pki().keyId("alice")}) << bit;
    }
    ASSERT_EQ(ERR_peek_error(), 0U) << bit;
  }
  EXPECT_GT(refused, 8 * good.size() / 17 * 9 / 10);
}

TEST_F(Verification, EmptiesTheErrorQueueWhenItFails) {
  Support::sign(package(), "foreign");
  ERR_raise(ERR_LIB_USER, 1);
  EXPECT_FALSE(verifies());
}

TEST(DefaultCaPath, IsUnderSlashByDefault) {
  const Support::ScopedEnvironment root("KRV_ROOT_FS", std::nullopt);
  EXPECT_EQ(PackageSignatures::defaultCaPath(), "/etc/krv/trusted-ca");
}

TEST(DefaultCaPath, IsUnderTheRootOfTheVariable) {
  const Support::ScopedEnvironment root("KRV_ROOT_FS", "/mnt/image/");
  EXPECT_EQ(PackageSignatures::defaultCaPath(), "/mnt/image/etc/krv/trusted-ca");
}

TEST(DefaultCaPath, IsUnderSlashIfTheVariableIsEmpty) {
  const Support::ScopedEnvironment root("KRV_ROOT_FS", "");
  EXPECT_EQ(PackageSignatures::defaultCaPath(), "/etc/krv/trusted-ca");
}

} // namespace
