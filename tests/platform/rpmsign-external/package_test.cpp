// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/platform/rpmsign-external/package_test.h"

#include "platform/rpmsign-external/src/package_file.h"
#include "tests/support/process/process.h"
#include "tests/support/signing/reading.h"

#include <openssl/pem.h>
#include <rpmsign-external/verification.h>

#include <algorithm>

#include <fcntl.h>

using PackageSignatures::Cms;
using PackageSignatures::FileWithCmses;
using PackageSignatures::PackageLayout;
using PackageSignatures::Problem;

PackageTest::PackageTest() : m_package(inSandbox("sample.rpm")) {
  m_sandbox.build({}, m_package);
  const auto offset = static_cast<std::size_t>(PackageSignatures::packageLayout(m_package).contentOffset);
  Support::writeFile(inSandbox("content"), Support::readFile(m_package).substr(offset));
}

void PackageTest::TearDown() {
  EXPECT_EQ(ERR_peek_error(), 0U) << "left in the error queue";
  expectTheSameWithKeys();
}

void PackageTest::expectTheSameWithKeys() const {
  const auto file = PackageSignatures::openRegularFile(AT_FDCWD, package(), PackageSignatures::Symlink::Followed);
  const auto parts = file ? PackageSignatures::locateParts(file.get()) : std::nullopt;
  if (!parts || !parts->container)
    return;
  const auto stored = PackageSignatures::readRange(file.get(), parts->container->offset, parts->container->size);
  EXPECT_EQ(Support::differenceWithKeys(stored.value_or("")), "");
}

bool PackageTest::isReadable() const {
  expectTheSameWithKeys();
  return FileWithCmses::fromPath(package()) != nullptr;
}

std::string PackageTest::container() const {
  std::string bytes;
  for (const PackageLayout::StoredCms& range : PackageSignatures::packageLayout(package()).cmses)
    bytes += Support::readFile(package()).substr(static_cast<std::size_t>(range.offset), range.size);
  return bytes;
}

bool PackageTest::verifies() const {
  expectTheSameWithKeys();
  const auto file = FileWithCmses::fromPath(package());
  return file && verifiesAgainst(*file, pki().trustedCa().c_str());
}

bool PackageTest::verifiesAgainst(FileWithCmses& file, const char* caPath) {
  const bool verified = file.verifyCmses(caPath);
  const PackageSignatures::Verification verification = PackageSignatures::verifyPackage(file, {.caPath = caPath});
  EXPECT_EQ(verification.isGood(), verified);
  const std::vector<Cms> cmses = file.cmses();
  EXPECT_EQ(verification.cmses.size(), cmses.size());
  for (std::size_t i = 0; i < cmses.size(); ++i) {
    std::set<Problem> ofTheChain = verification.cmses.at(i).problems;
    for (const Problem other :
         {Problem::RoleMissing, Problem::RoleTwice, Problem::SignatureBroken, Problem::RotationBroken})
      ofTheChain.erase(other);
    EXPECT_EQ(cmses[i].certificate()->verify(caPath), ofTheChain.empty()) << i;
  }
  return verified;
}

Cms PackageTest::onlyCms() const {
  expectTheSameWithKeys();
  const auto file = FileWithCmses::fromPath(package());
  if (!file || file->cmses().size() != 1)
    throw std::runtime_error("the package has not exactly one signature");
  return file->cmses().front();
}

std::string PackageTest::opensslCms(const std::vector<std::string>& options, const std::string& file) const {
  std::vector<std::string> command = {"openssl", "cms", "-sign",         "-binary", "-outform",
                                      "DER",     "-in", inSandbox(file), "-out",    inSandbox("cms.der")};
  if (std::ranges::find(options, "UNBOUND") == options.end())
    command.push_back("-cades");
  for (const std::string& option : options) {
    if (option == "UNBOUND")
      continue;
    if (!option.starts_with("SIGNER:")) {
      command.push_back(option);
      continue;
    }
    const std::string name = option.substr(option.find(':') + 1);
    command.insert(command.end(), {"-signer", pki().certificate(name), "-inkey", pki().key(name)});
  }
  Support::runOrThrow(command);
  return Support::readFile(inSandbox("cms.der"));
}

std::string PackageTest::cmsWithAttribute(const std::string& name, const Attribute& added, unsigned int flags) const {
  return cmsWithAttribute(pki().certificate(name), pki().key(name), added, flags);
}

std::string PackageTest::cmsWithAttribute(const std::string& certificatePath, const std::string& keyPath,
                                          const Attribute& added, unsigned int flags) const {
  const auto certificateFile = owned(BIO_new_file(certificatePath.c_str(), "r"), &BIO_free);
  const auto certificate = owned(PEM_read_bio_X509(certificateFile.get(), nullptr, nullptr, nullptr), &X509_free);
  const auto keyFile = owned(BIO_new_file(keyPath.c_str(), "r"), &BIO_free);
  const auto key = owned(PEM_read_bio_PrivateKey(keyFile.get(), nullptr, nullptr, nullptr), &EVP_PKEY_free);
  flags |= CMS_BINARY | CMS_DETACHED | CMS_PARTIAL;
  const auto cms = owned(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags), &CMS_ContentInfo_free);
  CMS_SignerInfo* const signer = CMS_add1_signer(cms.get(), certificate.get(), key.get(), EVP_sha256(), flags);
  const auto object = owned(OBJ_txt2obj(added.identifier.c_str(), 1), &ASN1_OBJECT_free);
  const auto attribute = owned(X509_ATTRIBUTE_new(), &X509_ATTRIBUTE_free);
  X509_ATTRIBUTE_set1_object(attribute.get(), object.get());
  for (const std::string& value : added.values) {
    // The first byte of a DER value is its type in the numbering of X509_ATTRIBUTE_set1_data(), which needs only the
    // content of a primitive value but the whole of a constructed value.
    const bool constructed = (value[0] & 0x20) != 0;
    const std::string content = constructed ? value : value.substr(2);
    X509_ATTRIBUTE_set1_data(attribute.get(), value[0] & 0x1F, content.data(), static_cast<int>(content.size()));
  }
  CMS_signed_add1_attr(signer, attribute.get());
  const std::string file = Support::readFile(inSandbox("content"));
  const auto content = owned(BIO_new_mem_buf(file.data(), static_cast<int>(file.size())), &BIO_free);
  if (CMS_final(cms.get(), content.get(), nullptr, flags) != 1)
    throw std::runtime_error("OpenSSL fails");
  unsigned char* bytes = nullptr;
  const int size = i2d_CMS_ContentInfo(cms.get(), &bytes);
  const std::string message(bytes, bytes + size);
  OPENSSL_free(bytes);
  return message;
}

std::string der(char tag, const std::string& content) {
  std::string length(1, static_cast<char>(content.size()));
  if (content.size() > 127)
    length = {'\x82', static_cast<char>(content.size() >> 8), static_cast<char>(content.size() & 0xFF)};
  return tag + length + content;
}

std::string withLongerLength(std::string der) {
  if (der.at(1) != '\x82')
    throw std::runtime_error("the length has not two bytes");
  return der.replace(1, 1, std::string("\x83\0", 2));
}

std::string replaced(std::string bytes, std::string_view from, std::string_view to) {
  return bytes.replace(bytes.find(from), from.size(), to);
}

std::string bigEndian(std::size_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(value >> shift & 0xFF);
  return bytes;
}

std::string flipped(std::string bytes, std::size_t bit) {
  bytes.at(bit / 8) = static_cast<char>(bytes.at(bit / 8) ^ (1 << bit % 8));
  return bytes;
}
