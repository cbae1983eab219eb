// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <utility>

#include <unistd.h>

namespace PackageSignatures {

/// Calls the library's release function for a handle.
template <auto release>
struct Release {
  template <typename Handle>
  void operator()(Handle* handle) const {
    release(handle);
  }
};

inline void freeCertificates(STACK_OF(X509) * certificates) {
  sk_X509_pop_free(certificates, X509_free);
}

inline void freeUsages(STACK_OF(ASN1_OBJECT) * usages) {
  sk_ASN1_OBJECT_pop_free(usages, ASN1_OBJECT_free);
}

inline void freeAny(STACK_OF(ASN1_TYPE) * values) {
  sk_ASN1_TYPE_pop_free(values, ASN1_TYPE_free);
}

inline void freeBuffer(unsigned char* buffer) {
  OPENSSL_free(buffer);
}

using AnySequencePtr = std::unique_ptr<STACK_OF(ASN1_TYPE), Release<freeAny>>;
using AnyPtr = std::unique_ptr<ASN1_TYPE, Release<ASN1_TYPE_free>>;
using BioPtr = std::unique_ptr<BIO, Release<BIO_free>>;
using BioChainPtr = std::unique_ptr<BIO, Release<BIO_free_all>>;
using BufferPtr = std::unique_ptr<unsigned char, Release<freeBuffer>>;
using CertificatePtr = std::unique_ptr<X509, Release<X509_free>>;
using CertificatesPtr = std::unique_ptr<STACK_OF(X509), Release<freeCertificates>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Release<CMS_ContentInfo_free>>;
using DigestContextPtr = std::unique_ptr<EVP_MD_CTX, Release<EVP_MD_CTX_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using LibraryPtr = std::unique_ptr<OSSL_LIB_CTX, Release<OSSL_LIB_CTX_free>>;
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, Release<ASN1_OBJECT_free>>;
using OctetStringPtr = std::unique_ptr<ASN1_OCTET_STRING, Release<ASN1_OCTET_STRING_free>>;
using ProviderPtr = std::unique_ptr<OSSL_PROVIDER, Release<OSSL_PROVIDER_unload>>;
using StoreContextPtr = std::unique_ptr<X509_STORE_CTX, Release<X509_STORE_CTX_free>>;
using StorePtr = std::unique_ptr<X509_STORE, Release<X509_STORE_free>>;
using UsagesPtr = std::unique_ptr<STACK_OF(ASN1_OBJECT), Release<freeUsages>>;

/// Empties OpenSSL's error queue in the destructor, so that later code does not mistake an error of a package for its
/// own.
class ErrorQueueCleaner {
public:
  ErrorQueueCleaner() = default;
  ~ErrorQueueCleaner() { ERR_clear_error(); }
  ErrorQueueCleaner(const ErrorQueueCleaner&) = delete;
  ErrorQueueCleaner& operator=(const ErrorQueueCleaner&) = delete;
};

class FileDescriptor {
public:
  explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
  }
  ~FileDescriptor() {
    if (m_descriptor >= 0)
      close(m_descriptor);
  }

  int get() const { return m_descriptor; }
  explicit operator bool() const { return m_descriptor >= 0; }

private:
  int m_descriptor;
};

} // namespace PackageSignatures
