// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"
#include "tests/support/packages/open_pgp_key.h"
#include "tests/support/process/ordinary_user.h"
#include "tests/support/process/process.h"

namespace {

using PackageSignatures::replaceContainer;
using PackageSignatures::SigningError;
using PackageSignatures::SigningKey;

/// RPM's limit for the data of a signature header.
constexpr std::size_t mostData = 64 * 1024 * 1024;

/// The limit for the signatures of a package.
constexpr std::size_t mostSignatures = 256 * 1024;

class Signing : public PackageTest {
protected:
  /// Replaces the signature header by one with `count` binary tags of `size` bytes each.
  void writeHeader(std::size_t count, std::size_t size) const {
    const std::string file = Support::readFile(package());
    std::string header("\x8e\xad\xe8\x01\0\0\0\0", 8);
    header += bigEndian(count) + bigEndian(count * size);
    for (std::size_t i = 0; i < count; ++i)
      header += bigEndian(0x1000 + i) + bigEndian(7) + bigEndian(i * size) + bigEndian(size);
    header += std::string(count * size, 'x');
    header.resize((header.size() + 7) / 8 * 8, '\0');
    Support::writeFile(package(), file.substr(0, 96) + header + content());
  }

  std::size_t contentOffset() const {
    return static_cast<std::size_t>(PackageSignatures::packageLayout(package()).contentOffset);
  }
  std::string content() const { return Support::readFile(package()).substr(contentOffset()); }

  /// The output of `rpm -K` for the package.
  std::string digests() const { return Support::run({"rpm", "-K", package()}).output; }

  std::string openPgpSignature() const {
    return Support::runOrThrow({"rpm", "-qp", "--nosignature", "--qf", "%{RSAHEADER:pgpsig}", package()});
  }

  /// The message of the exception that `action` throws.
  template <typename Action>
  static std::string failure(Action action) {
    try {
      action();
    } catch (const SigningError& error) {
      return error.what();
    }
    return "no failure";
  }
};

TEST_F(Signing, LeavesThePackageReadableForRpm) {
  const std::string payload = Support::runOrThrow({"rpm2cpio", package()});
  const std::string before = content();
  Support::sign(package(), "alice-2", {"alice"});
  Support::sign(package(), "source");
  EXPECT_EQ(digests(), package() + ": digests OK\n");
  EXPECT_EQ(Support::runOrThrow({"rpm", "-qp", package()}), "sample-1.0-1.noarch\n");
  EXPECT_TRUE(Support::runOrThrow({"rpm2cpio", package()}) == payload);
  EXPECT_TRUE(content() == before);
  EXPECT_EQ(Support::runOrThrow({"rpm", "-qpl", package()}), "/opt/sample\n/opt/sample/file\n");
}

TEST_F(Signing, UsesTheSpaceReservedForSignatures) {
  const std::size_t before = contentOffset();
  Support::sign(package(), "alice");
  EXPECT_EQ(contentOffset(), before);
  Support::sign(package(), "source");
  EXPECT_EQ(contentOffset(), before);
}

TEST_F(Signing, RestoresTheFileWhenTheSignaturesAreRemoved) {
  const std::string before = Support::readFile(package());
  Support::sign(package(), "alice");
  EXPECT_FALSE(Support::readFile(package()) == before);
  replaceContainer(package(), "");
  EXPECT_TRUE(Support::readFile(package()) == before);
}

TEST_F(Signing, GrowsTheHeaderForLargeSignatures) {
  for (const std::size_t size : {5'000U, 100'000U, 200'001U}) {
    replaceContainer(package(), std::string(size, 'x'));
    EXPECT_EQ(digests(), package() + ": digests OK\n") << size;
  }
}

TEST_F(Signing, WorksWithoutReservedSpace) {
  sandbox().build({.globals = "%global __gpg_reserved_space 0\n%global _gpg_reserved_space 0"}, package());
  Support::sign(package(), "alice");
  EXPECT_EQ(digests(), package() + ": digests OK\n");
  EXPECT_TRUE(verifies());
}

TEST_F(Signing, ReplacesTheSignatureOfTheSameRole) {
  Support::sign(package(), "alice");
  Support::sign(package(), "source");
  const std::string source = container().substr(PackageSignatures::packageLayout(package()).cmses.at(0).size);
  Support::sign(package(), "bob");
  const std::vector<PackageSignatures::Cms> cmses = PackageSignatures::FileWithCmses::fromPath(package())->cmses();
  ASSERT_EQ(cmses.size(), 2U);
  EXPECT_EQ(cmses[0].certificate()->keyId(), pki().keyId("bob"));
  EXPECT_TRUE(container().ends_with(source));
  EXPECT_TRUE(verifies());
}

TEST_F(Signing, ReplacesExactlyTheSignaturesOfTheSameRole) {
  const std::string roleless = opensslCms({"SIGNER:roleless"});
  replaceContainer(package(), roleless + opensslCms({"SIGNER:alice"}) + opensslCms({"SIGNER:bob"}));
  Support::sign(package(), "alice-2");
  const std::vector<PackageSignatures::Cms> cmses = PackageSignatures::FileWithCmses::fromPath(package())->cmses();
  ASSERT_EQ(cmses.size(), 2U);
  EXPECT_TRUE(container().starts_with(roleless));
  EXPECT_EQ(cmses[1].certificate()->keyId(), pki().keyId("alice-2"));
}

TEST_F(Signing, KeepsAnOpenPgpSignature) {
  const Support::OpenPgpKey key(sandbox());
  key.sign(package());
  const std::string openPgp = openPgpSignature();
  EXPECT_NE(openPgp, "(none)");
  Support::sign(package(), "alice");
  EXPECT_EQ(openPgpSignature(), openPgp);
  EXPECT_TRUE(verifies());
}

TEST_F(Signing, IsKeptByAnOpenPgpSignature) {
  const Support::OpenPgpKey key(sandbox());
  Support::sign(package(), "alice");
  key.sign(package());
  EXPECT_NE(openPgpSignature(), "(none)");
  EXPECT_TRUE(verifies());
}

TEST_F(Signing, RefusesSignaturesAboveTheLimit) {
  EXPECT_EQ(failure([&] { replaceContainer(package(), std::string(mostSignatures, 'x')); }), "no failure");
  EXPECT_EQ(digests(), package() + ": digests OK\n");
  const std::string before = Support::readFile(package());
  EXPECT_EQ(failure([&] { replaceContainer(package(), std::string(mostSignatures + 1, 'x')); }),
            "its signatures would have 262145 bytes, and at most 262144 are read");
  EXPECT_TRUE(Support::readFile(package()) == before);
}

TEST_F(Signing, RefusesMoreDataThanRpmReads) {
  // The tag's data gets two additions: the region, which the header does not have yet, and one byte of signatures.
  constexpr std::size_t others = 16 + 1;
  writeHeader(1, mostData - others + 1);
  const std::string before = Support::readFile(package());
  EXPECT_EQ(failure([&] { replaceContainer(package(), "x"); }),
            "its signature header would have 67108865 bytes of data, and RPM reads at most 67108864");
  EXPECT_TRUE(Support::readFile(package()) == before);
  writeHeader(1, mostData - others);
  EXPECT_EQ(failure([&] { replaceContainer(package(), "x"); }), "no failure");
  EXPECT_EQ(Support::run({"rpm", "-qp", package()}).output, "sample-1.0-1.noarch\n");
}

TEST_F(Signing, RefusesAKeyThatDefinesItsCurve) {
  Support::runOrThrow({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-pkeyopt",
                       "ec_param_enc:explicit", "-noenc", "-keyout", inSandbox("key.pem"), "-out",
                       inSandbox("certificate.pem"), "-subj", "/CN=Curve", "-addext",
                       "extendedKeyUsage=2.25.157019916226857759528849042802738373896.1"});
  const PackageSignatures::Signer signer{SigningKey::load(inSandbox("key.pem"), inSandbox("certificate.pem"))};
  EXPECT_EQ(failure([&] { signPackage(package(), signer); }), "a key defines its curve instead of naming it");
  EXPECT_EQ(PackageSignatures::packageLayout(package()).cmses.size(), 0U);
}

TEST_F(Signing, RefusesMoreEntriesThanRpmReads) {
  // Signing adds two entries: the container and the region, which the header does not have yet.
  writeHeader(31, 1);
  const std::string before = Support::readFile(package());
  EXPECT_EQ(failure([&] { Support::sign(package(), "alice"); }),
            "its signature header would have 33 entries, and RPM reads at most 32");
  EXPECT_TRUE(Support::readFile(package()) == before);
  writeHeader(30, 1);
  Support::sign(package(), "alice");
  EXPECT_TRUE(verifies());
  EXPECT_EQ(Support::runOrThrow({"rpm", "-qp", package()}), "sample-1.0-1.noarch\n");
}

TEST_F(Signing, RefusesFilesThatCannotBeSigned) {
  const PackageSignatures::Signer alice = pki().signer("alice");
  Support::writeFile(inSandbox("text"), "text");
  const auto failureAt = [&](const std::string& path) { return failure([&] { signPackage(path, alice); }); };
  EXPECT_EQ(failureAt(inSandbox("text")), "it is not an RPM package");
  EXPECT_EQ(failureAt(inSandbox("missing")), "it cannot be opened: No such file or directory");
  EXPECT_EQ(failureAt(sandbox().path()), "it is not a regular file");
  EXPECT_EQ(failureAt("/dev/null"), "it is not a regular file");
  EXPECT_EQ(Support::readFile(inSandbox("text")), "text");
  replaceContainer(package(), "no signature");
  const std::string before = Support::readFile(package());
  EXPECT_EQ(failureAt(package()), "its signatures cannot be read");
  EXPECT_TRUE(Support::readFile(package()) == before);
}

TEST_F(Signing, RefusesContentThatIsNotAHeader) {
  const std::string before = Support::readFile(package()).substr(0, contentOffset());
  for (const std::string& content : {std::string(), std::string("\x8e\xad\xe8\x01", 4), std::string("text"),
                                     "krv-key-rotation:" + pki().keyId("bob")}) {
    Support::writeFile(package(), before + content);
    EXPECT_EQ(failure([&] { Support::sign(package(), "alice"); }), "its content is not an RPM header");
    EXPECT_EQ(failure([&] { PackageSignatures::makeCms(package(), pki().signer("alice")); }),
              "its content is not an RPM header");
    EXPECT_TRUE(Support::readFile(package()) == before + content);
  }
}

TEST_F(Signing, ReportsAFolderThatCannotBeWritten) {
  const PackageSignatures::Signer alice = pki().signer("alice");
  const std::string before = Support::readFile(package());
  const Support::OrdinaryUser user(sandbox().path());
  const Support::ScopedPermissions closed(sandbox().path(),
                                          std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  EXPECT_EQ(failure([&] { signPackage(package(), alice); }), "no file can be created beside it: Permission denied");
  EXPECT_TRUE(Support::readFile(package()) == before);
}

TEST_F(Signing, RefusesASignerWithoutARole) {
  for (const char* name : {"both", "roleless"})
    EXPECT_EQ(failure([&] { Support::sign(package(), name); }),
              "the certificate of the key is neither a developer's nor a source's")
        << name;
  EXPECT_EQ(failure([&] { Support::sign(package(), "alice", {"source"}); }),
            "the earlier key " + pki().keyId("source") + " is not a developer's");
}

TEST_F(Signing, SurvivesEveryFlippedBitOfTheHeader) {
  Support::sign(package(), "alice");
  const std::string good = Support::readFile(package());
  const std::size_t entries = 16 * static_cast<unsigned char>(good[107]);
  const PackageSignatures::Signer bob = pki().signer("bob");
  std::size_t failures = 0;
  for (std::size_t bit = 8 * 96; bit < 8 * (112 + entries); ++bit) {
    const std::string changed = flipped(good, bit);
    Support::writeFile(package(), changed);
    if (failure([&] { signPackage(package(), bob); }) != "no failure") {
      ++failures;
      ASSERT_TRUE(Support::readFile(package()) == changed) << bit;
    }
    ASSERT_EQ(ERR_peek_error(), 0U) << bit;
  }
  EXPECT_GT(failures, 0U);
}

TEST_F(Signing, ReadsKeysAndCertificates) {
  const auto failureWith = [&](const std::string& key, const std::string& certificate) {
    return failure([&] { SigningKey::load(key, certificate); });
  };
  const std::string key = pki().key("alice");
  const std::string certificate = pki().certificate("alice");
  EXPECT_EQ(failureWith(key, certificate), "no failure");
  EXPECT_EQ(failureWith(key, pki().certificate("bob")),
            "the key " + key + " does not belong to the certificate " + pki().certificate("bob").string());
  EXPECT_EQ(failureWith("/nowhere", certificate), "/nowhere cannot be opened: No such file or directory");
  EXPECT_EQ(failureWith(key, "/nowhere"), "/nowhere cannot be opened: No such file or directory");
  EXPECT_EQ(failureWith(certificate, certificate), certificate + " is not a PEM file of a private key");
  EXPECT_EQ(failureWith(key, key), key + " is not a PEM file of a certificate");
  Support::runOrThrow(
      {"openssl", "pkcs8", "-topk8", "-in", key, "-out", inSandbox("locked.pem"), "-passout", "pass:secret"});
  EXPECT_EQ(failureWith(inSandbox("locked.pem"), certificate),
            inSandbox("locked.pem") + " needs a pass phrase, and none is given");
}

TEST_F(Signing, ReadsIntermediateCertificates) {
  PackageSignatures::Signer signer = pki().signer("branch");
  const auto failureWith = [&](const std::string& path) {
    signer.chainPath = path;
    return failure([&] { signPackage(package(), signer); });
  };
  EXPECT_EQ(failureWith("/nowhere"), "/nowhere cannot be opened: No such file or directory");
  const std::string key = pki().key("alice");
  EXPECT_EQ(failureWith(key), key + " is not a PEM file of certificates");
  Support::writeFile(inSandbox("both.pem"),
                     Support::readFile(pki().certificate("branch-ca")) + Support::readFile(pki().certificate("ca")));
  EXPECT_EQ(failureWith(inSandbox("both.pem")), "no failure");
  EXPECT_TRUE(verifies());
  Support::writeFile(inSandbox("cut.pem"), Support::readFile(pki().certificate("branch-ca")) +
                                               "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n");
  EXPECT_EQ(failureWith(inSandbox("cut.pem")), inSandbox("cut.pem") + " is not a PEM file of certificates");
}

TEST_F(Signing, ReturnsTheRoleOfAKey) {
  const auto roleOf = [&](const std::string& name) {
    return SigningKey::load(pki().key(name), pki().certificate(name)).role();
  };
  EXPECT_EQ(roleOf("alice"), PackageSignatures::Role::Developer);
  EXPECT_EQ(roleOf("source"), PackageSignatures::Role::Source);
  EXPECT_EQ(roleOf("both"), std::nullopt);
  EXPECT_EQ(roleOf("roleless"), std::nullopt);
}

TEST_F(Signing, ReturnsThePlacesOfTheSignatures) {
  Support::sign(package(), "alice");
  Support::sign(package(), "source");
  const PackageSignatures::PackageLayout layout = PackageSignatures::packageLayout(package());
  ASSERT_EQ(layout.cmses.size(), 2U);
  EXPECT_EQ(layout.cmses[1].offset, layout.cmses[0].offset + static_cast<off_t>(layout.cmses[0].size));
  EXPECT_EQ(Support::readFile(package()).substr(static_cast<std::size_t>(layout.contentOffset), 3), "\x8e\xad\xe8");
}

} // namespace
