// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/signing_key.h"

#include "platform/rpmsign-external/src/certificate.h"
#include "platform/rpmsign-external/src/signing_error.h"

#include <openssl/pem.h>

#include <cerrno>
#include <utility>

namespace PackageSignatures {

namespace {

BioPtr openPem(const std::string& path) {
  errno = 0;
  BioPtr file(BIO_new_file(path.c_str(), "r"));
  const int error = errno;
  if (!file)
    failWithErrno(path + " cannot be opened", error);
  return file;
}

int noPassPhrase(char*, int, int, void*) {
  return -1;
}

} // namespace

CertificatesPtr readCertificates(const std::string& path) {
  CertificatesPtr certificates(sk_X509_new_null());
  if (path.empty())
    return certificates;
  const BioPtr file = openPem(path);
  while (CertificatePtr certificate{PEM_read_bio_X509(file.get(), nullptr, noPassPhrase, nullptr)}) {
    if (sk_X509_push(certificates.get(), certificate.get()) > 0)
      static_cast<void>(certificate.release());
  }
  const bool atEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  if (!atEnd || sk_X509_num(certificates.get()) == 0)
    throw SigningError(path + " is not a PEM file of certificates");
  return certificates;
}

SigningKey::SigningKey(std::shared_ptr<const Impl> impl) : m_impl(std::move(impl)) {}

SigningKey SigningKey::fromFiles(const std::string& keyPath, const std::string& certificatePath) {
  const ErrorQueueCleaner cleaner;
  const BioPtr keyFile = openPem(keyPath);
  KeyPtr key(PEM_read_bio_PrivateKey(keyFile.get(), nullptr, noPassPhrase, nullptr));
  if (!key)
    throw SigningError(keyPath + " is not a PEM file of a private key without a pass phrase");
  const BioPtr certificateFile = openPem(certificatePath);
  CertificatePtr certificate(PEM_read_bio_X509(certificateFile.get(), nullptr, noPassPhrase, nullptr));
  if (!certificate)
    throw SigningError(certificatePath + " is not a PEM file of a certificate");
  if (X509_check_private_key(certificate.get(), key.get()) != 1)
    throw SigningError("the key " + keyPath + " does not belong to the certificate " + certificatePath);
  return SigningKey(std::make_shared<const Impl>(Impl{std::move(key), std::move(certificate)}));
}

std::string SigningKey::keyId() const {
  const ErrorQueueCleaner cleaner;
  return keyIdOf(m_impl->certificate.get());
}

std::optional<Role> SigningKey::role() const {
  const ErrorQueueCleaner cleaner;
  return roleOf(m_impl->certificate.get());
}

} // namespace PackageSignatures
