// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/signing_key.h"

#include "platform/rpmsign-external/src/certificate.h"
#include "platform/rpmsign-external/src/pass_phrases.h"
#include "platform/rpmsign-external/src/signing_error.h"

#include <openssl/pem.h>
#include <openssl/store.h>
#include <openssl/ui.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace PackageSignatures {

namespace {

using KeyStorePtr = std::unique_ptr<OSSL_STORE_CTX, Release<OSSL_STORE_close>>;
using StoreInfoPtr = std::unique_ptr<OSSL_STORE_INFO, Release<OSSL_STORE_INFO_free>>;
using UiMethodPtr = std::unique_ptr<UI_METHOD, Release<UI_destroy_method>>;

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

namespace {

constexpr std::string_view tokenScheme = "pkcs11:";

void requireAnswer(const PassPhraseQuestion& question, const std::string& key, const std::string& needed) {
  if (question.refusal() != nullptr)
    throw SigningError(key + " needs a " + needed + ", and " + question.refusal());
}

KeyPtr keyFromFile(const std::string& path, const PassPhrases& passPhrases) {
  const BioPtr file = openPem(path);
  PassPhraseQuestion question(passPhrases.impl(), "Pass phrase of " + path + ": ");
  KeyPtr key(PEM_read_bio_PrivateKey(file.get(), nullptr, PassPhraseQuestion::answer, &question));
  if (!key) {
    requireAnswer(question, path, "pass phrase");
    throw SigningError(
        path + (question.wasAsked() ? " cannot be read with this pass phrase" : " is not a PEM file of a private key"));
  }
  return key;
}

/// Loads the first private key of the URI. Returns null if the URI has no private key.
KeyPtr firstKey(OSSL_STORE_CTX* store) {
  while (OSSL_STORE_eof(store) == 0) {
    const StoreInfoPtr info(OSSL_STORE_load(store));
    if (!info && OSSL_STORE_error(store) != 0)
      return nullptr;
    if (info && OSSL_STORE_INFO_get_type(info.get()) == OSSL_STORE_INFO_PKEY)
      return KeyPtr(OSSL_STORE_INFO_get1_PKEY(info.get()));
  }
  return nullptr;
}

/// Keeps a provider from asking on its own, on standard input if there is no terminal.
class NoDialogs {
public:
  NoDialogs() : m_before(UI_get_default_method()) { UI_set_default_method(UI_null()); }
  ~NoDialogs() { UI_set_default_method(m_before); }
  NoDialogs(const NoDialogs&) = delete;
  NoDialogs& operator=(const NoDialogs&) = delete;

private:
  const UI_METHOD* m_before;
};

KeyPtr keyFromToken(const std::string& uri, const PassPhrases& passPhrases) {
  const NoDialogs noDialogs;
  PassPhraseQuestion question(passPhrases.impl(), "PIN of " + uri + ": ");
  constexpr int reading = 0;
  const UiMethodPtr method(UI_UTIL_wrap_read_pem_callback(PassPhraseQuestion::answer, reading));
  const KeyStorePtr store(
      OSSL_STORE_open_ex(uri.c_str(), nullptr, nullptr, method.get(), &question, nullptr, nullptr, nullptr));
  KeyPtr key = store && OSSL_STORE_expect(store.get(), OSSL_STORE_INFO_PKEY) == 1 ? firstKey(store.get()) : nullptr;
  if (!key) {
    requireAnswer(question, uri, "PIN");
    throw SigningError(uri + " cannot be loaded: no token has such a private key, or the PIN is wrong");
  }
  return key;
}

} // namespace

SigningKey SigningKey::load(const std::string& key, const std::string& certificatePath,
                            const PassPhrases& passPhrases) {
  const ErrorQueueCleaner cleaner;
  // Otherwise OpenSSL closes the sessions of a token while the process exits, after the token's library has destroyed
  // its own objects (SoftHSM crashes). It counts only before the first use of OpenSSL.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  Impl impl;
  if (key.starts_with(tokenScheme)) {
    if (key.find("pin-value") != std::string::npos)
      throw SigningError("the URI of the key contains a PIN, which other users can see");
    impl.provider.reset(OSSL_PROVIDER_try_load(nullptr, "pkcs11", 1));
    if (!impl.provider)
      throw SigningError(key + " cannot be used: OpenSSL has no provider \"pkcs11\"");
    impl.key = keyFromToken(key, passPhrases);
  } else {
    impl.key = keyFromFile(key, passPhrases);
  }
  const BioPtr certificateFile = openPem(certificatePath);
  impl.certificate.reset(PEM_read_bio_X509(certificateFile.get(), nullptr, noPassPhrase, nullptr));
  if (!impl.certificate)
    throw SigningError(certificatePath + " is not a PEM file of a certificate");
  if (X509_check_private_key(impl.certificate.get(), impl.key.get()) != 1)
    throw SigningError("the key " + key + " does not belong to the certificate " + certificatePath);
  return SigningKey(std::make_shared<const Impl>(std::move(impl)));
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
