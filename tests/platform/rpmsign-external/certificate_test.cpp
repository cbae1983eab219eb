// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/process/process.h"

namespace {

using PackageSignatures::clientCmsFromVector;
using PackageSignatures::Cms;
using PackageSignatures::developerCmsFromVector;
using PackageSignatures::FileWithCmses;
using PackageSignatures::replaceContainer;
using PackageSignatures::Role;
using PackageSignatures::Subgroup;
using PackageSignatures::subgroupToString;

class CertificateTest : public PackageTest {
protected:
  /// Signs the package with a new certificate. `extensions` are in the form of `openssl req -addext`.
  void signWith(const std::string& subject, const std::vector<std::string>& extensions) const {
    std::vector<std::string> command = {"openssl",
                                        "req",
                                        "-x509",
                                        "-newkey",
                                        "ec",
                                        "-pkeyopt",
                                        "ec_paramgen_curve:P-256",
                                        "-noenc",
                                        "-utf8",
                                        "-subj",
                                        subject,
                                        "-keyout",
                                        inSandbox("fresh.key.pem"),
                                        "-out",
                                        inSandbox("fresh.pem")};
    for (const std::string& extension : extensions)
      command.insert(command.end(), {"-addext", extension});
    Support::runOrThrow(command);
    replaceContainer(package(), opensslCms({"-signer", inSandbox("fresh.pem"), "-inkey", inSandbox("fresh.key.pem")}));
  }

  Subgroup subgroupOf(const std::string& subject) const {
    signWith(subject, {});
    return onlyCms().certificate()->subgroup();
  }

  std::optional<Role> roleWith(const std::vector<std::string>& extensions) const {
    signWith("/CN=x", extensions);
    const std::vector<Cms> cmses = {onlyCms()};
    const bool developer = developerCmsFromVector(cmses).has_value();
    EXPECT_FALSE(developer && clientCmsFromVector(cmses));
    if (developer)
      return Role::Developer;
    return clientCmsFromVector(cmses) ? std::optional(Role::Source) : std::nullopt;
  }
};

const std::string arc = "2.25.157019916226857759528849042802738373896";

TEST_F(CertificateTest, HasTheHashOfItsPublicKeyAsKeyId) {
  Support::sign(package(), "alice");
  const std::string byOpenssl =
      Support::runOrThrow({"bash", "-c",
                           "openssl x509 -in \"$0\" -noout -pubkey | openssl pkey -pubin -outform DER | sha256sum",
                           pki().certificate("alice").string()})
          .substr(0, 64);
  EXPECT_EQ(onlyCms().certificate()->keyId(), byOpenssl);
}

TEST_F(CertificateTest, TakesTheSubgroupFromTheFirstOrganizationalUnit) {
  EXPECT_EQ(subgroupOf("/CN=x"), Subgroup::Regular);
  EXPECT_EQ(subgroupOf("/CN=system"), Subgroup::Regular);
  EXPECT_EQ(subgroupOf("/OU=system"), Subgroup::System);
  EXPECT_EQ(subgroupOf("/OU=extended"), Subgroup::Extended);
  EXPECT_EQ(subgroupOf("/CN=x/OU=extended/OU=system"), Subgroup::Extended);
  for (const char* subject : {"/OU=System", "/OU=system ", "/OU=systems", "/OU=unknown", "/OU=x/OU=system", "/OU=ä"})
    EXPECT_EQ(subgroupOf(subject), Subgroup::Unknown) << subject;
}

TEST_F(CertificateTest, NamesTheSubgroups) {
  EXPECT_EQ(subgroupToString(Subgroup::Regular), "regular");
  EXPECT_EQ(subgroupToString(Subgroup::System), "system");
  EXPECT_EQ(subgroupToString(Subgroup::Extended), "extended");
  EXPECT_EQ(subgroupToString(Subgroup::Unknown), "unknown");
  EXPECT_EQ(subgroupToString(static_cast<Subgroup>(99)), "unknown");
}

TEST_F(CertificateTest, ComparesRolesAsWholeIdentifiers) {
  EXPECT_EQ(roleWith({"extendedKeyUsage=" + arc + ".1"}), Role::Developer);
  EXPECT_EQ(roleWith({"extendedKeyUsage=" + arc + ".2"}), Role::Source);
  EXPECT_EQ(roleWith({"extendedKeyUsage=critical,emailProtection," + arc + ".1"}), Role::Developer);
  for (const std::string& usage :
       {arc, arc + ".1.1", arc + ".10", arc + ".3", std::string("anyExtendedKeyUsage"), arc + ".1," + arc + ".2"})
    EXPECT_EQ(roleWith({"extendedKeyUsage=" + usage}), std::nullopt) << usage;
  EXPECT_EQ(roleWith({}), std::nullopt);
}

TEST_F(CertificateTest, UsesTheFirstSignatureWithTheRole) {
  std::string container;
  for (const char* name : {"roleless", "source", "bob", "alice"})
    container += opensslCms({"SIGNER:" + std::string(name)});
  replaceContainer(package(), container);
  const std::vector<Cms> cmses = FileWithCmses::fromPath(package())->cmses();
  EXPECT_EQ(developerCmsFromVector(cmses)->certificate()->keyId(), pki().keyId("bob"));
  EXPECT_EQ(clientCmsFromVector(cmses)->certificate()->keyId(), pki().keyId("source"));
  EXPECT_FALSE(developerCmsFromVector({}));
  EXPECT_FALSE(clientCmsFromVector({}));
}

TEST_F(CertificateTest, OutlivesTheFile) {
  Support::sign(package(), "alice");
  auto file = FileWithCmses::fromPath(package());
  const PackageSignatures::Certificate certificate = *file->cmses().front().certificate();
  file.reset();
  EXPECT_EQ(certificate.keyId(), pki().keyId("alice"));
  EXPECT_TRUE(certificate.verify(pki().trustedCa().c_str()));
}

TEST_F(CertificateTest, VerifiesWithoutARole) {
  replaceContainer(package(), opensslCms({"SIGNER:both"}));
  EXPECT_TRUE(onlyCms().certificate()->verify(pki().trustedCa().c_str()));
}

} // namespace
