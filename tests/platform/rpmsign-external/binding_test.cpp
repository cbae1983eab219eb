// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/process/process.h"

#include <openssl/ess.h>
#include <openssl/pem.h>

namespace {

using PackageSignatures::Cms;
using PackageSignatures::replaceContainer;
using PackageSignatures::Signer;
using PackageSignatures::SigningKey;

const std::string arc = "2.25.157019916226857759528849042802738373896";
const std::string signingCertificateV2 = "1.2.840.113549.1.9.16.2.47";

/// One key with two certificates of the same authority: checks that a signature made with the first certificate is not
/// accepted with the second.
class Binding : public PackageTest {
protected:
  Binding() {
    Support::runOrThrow({"openssl", "genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out",
                         inSandbox("key.pem")});
    Support::writeFile(inSandbox("config"), "[req]\ndistinguished_name = subject\n[subject]\n");
  }

  /// Certifies the key. The serial number is `digit`, repeated.
  void certify(const std::string& name, char digit, const std::string& subject, const std::string& usage) const {
    Support::runOrThrow({"openssl", "req", "-x509", "-config", inSandbox("config"), "-key", inSandbox("key.pem"), "-CA",
                         pki().certificate("ca"), "-CAkey", pki().key("ca"), "-subj", subject, "-addext",
                         "extendedKeyUsage=" + usage, "-set_serial", "0x" + std::string(16, digit), "-out",
                         inSandbox(name)});
  }

  Signer signer(const std::string& certificate) const {
    return {.key = SigningKey::load(inSandbox("key.pem"), inSandbox(certificate))};
  }

  /// The message with another certificate, named by its signer identifier. No key is needed for this change.
  std::string withCertificate(const std::string& message, const std::string& name, char oldDigit, char newDigit) const {
    const auto file = owned(BIO_new_file(inSandbox(name).c_str(), "r"), &BIO_free);
    const auto certificate = owned(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr), &X509_free);
    const auto* position = reinterpret_cast<const unsigned char*>(message.data());
    const auto cms =
        owned(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(message.size())), &CMS_ContentInfo_free);
    CMS_add1_cert(cms.get(), certificate.get());
    unsigned char* bytes = nullptr;
    const int size = i2d_CMS_ContentInfo(cms.get(), &bytes);
    std::string changed(bytes, bytes + size);
    OPENSSL_free(bytes);
    const auto serial = [](char digit) { return std::string(8, static_cast<char>((digit - '0') * 0x11)); };
    // The first occurrence is in the certificate.
    const std::size_t place = changed.find(serial(oldDigit), changed.find(serial(oldDigit)) + 8);
    return changed.replace(place, 8, serial(newDigit));
  }

  /// An attribute that names the certificate of `name` by its digest.
  Attribute naming(const std::string& name, const EVP_MD* digest) const {
    const auto file = owned(BIO_new_file(pki().certificate(name).c_str(), "r"), &BIO_free);
    const auto certificate = owned(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr), &X509_free);
    const auto value =
        owned(OSSL_ESS_signing_cert_v2_new_init(digest, certificate.get(), nullptr, 0), &ESS_SIGNING_CERT_V2_free);
    unsigned char* bytes = nullptr;
    const int size = i2d_ESS_SIGNING_CERT_V2(value.get(), &bytes);
    Attribute attribute{signingCertificateV2, {std::string(bytes, bytes + size)}};
    OPENSSL_free(bytes);
    return attribute;
  }

  bool verifiesAs(const std::string& container) const {
    replaceContainer(package(), container);
    EXPECT_TRUE(isReadable());
    return verifies();
  }
};

TEST_F(Binding, KeepsTheSubgroup) {
  certify("regular.pem", '1', "/CN=Regular", arc + ".1");
  certify("system.pem", '2', "/OU=system/CN=System", arc + ".1");
  const std::string message = PackageSignatures::makeCms(package(), signer("regular.pem"));
  EXPECT_TRUE(verifiesAs(message));
  EXPECT_FALSE(verifiesAs(withCertificate(message, "system.pem", '1', '2')));
  EXPECT_EQ(onlyCms().certificate()->subgroup(), PackageSignatures::Subgroup::System);
}

TEST_F(Binding, KeepsTheRole) {
  certify("source.pem", '1', "/CN=Both", arc + ".2");
  certify("developer.pem", '2', "/CN=Both", arc + ".1");
  const std::string message = PackageSignatures::makeCms(package(), signer("source.pem"));
  EXPECT_TRUE(verifiesAs(message));
  EXPECT_FALSE(verifiesAs(withCertificate(message, "developer.pem", '1', '2')));
  EXPECT_TRUE(PackageSignatures::developerCmsFromVector({onlyCms()}));
}

TEST_F(Binding, AcceptsABindingByOpensslsLibrary) {
  EXPECT_TRUE(verifiesAs(cmsWithAttribute("alice", {"1.2.3.4", {der('\x04', "x")}})));
  EXPECT_TRUE(verifiesAs(cmsWithAttribute("alice", naming("alice", EVP_sha256()), 0)));
}

TEST_F(Binding, RefusesAMessageThatDoesNotNameItsCertificateBySha256) {
  EXPECT_FALSE(verifiesAs(opensslCms({"SIGNER:alice", "UNBOUND"}))) << "no attribute";
  EXPECT_FALSE(verifiesAs(cmsWithAttribute("alice", naming("alice-2", EVP_sha256()), 0))) << "another certificate";
  EXPECT_FALSE(verifiesAs(cmsWithAttribute("alice", naming("alice", EVP_sha1()), 0))) << "SHA-1";
  EXPECT_FALSE(verifiesAs(cmsWithAttribute("alice", naming("alice", EVP_sha512()), 0))) << "SHA-512";
  for (const std::string& value :
       {der('\x30', ""), der('\x30', der('\x30', "")), der('\x30', der('\x30', der('\x30', ""))),
        der('\x30', der('\x04', "x")), der('\x04', "x")})
    EXPECT_FALSE(verifiesAs(cmsWithAttribute("alice", {signingCertificateV2, {value}}, 0))) << "out of form";
}

} // namespace
