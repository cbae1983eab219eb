// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/certificate.h"

#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

namespace PackageSignatures {

namespace {

bool hasUsage(const STACK_OF(ASN1_OBJECT) * usages, const ObjectPtr& wanted) {
  for (int i = 0; wanted && i < sk_ASN1_OBJECT_num(usages); ++i) {
    if (OBJ_cmp(sk_ASN1_OBJECT_value(usages, i), wanted.get()) == 0)
      return true;
  }
  return false;
}

std::optional<std::string> firstOrganizationalUnit(X509* certificate) {
  X509_NAME* subject = X509_get_subject_name(certificate);
  const int index = X509_NAME_get_index_by_NID(subject, NID_organizationalUnitName, -1);
  if (index < 0)
    return std::nullopt;
  unsigned char* text = nullptr;
  const int size = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
  const BufferPtr owner(text);
  return size < 0 ? std::string() : std::string(text, text + size);
}

} // namespace

ObjectPtr objectFromText(const char* identifier) {
  return ObjectPtr(OBJ_txt2obj(identifier, 1));
}

std::optional<Role> roleOf(X509* certificate) {
  const UsagesPtr usages(
      static_cast<STACK_OF(ASN1_OBJECT)*>(X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
  if (!usages)
    return std::nullopt;
  // Made once: to turn an arc of this length into its encoded form takes longer than all the rest here.
  static const ObjectPtr developerObject = objectFromText(developerUsage);
  static const ObjectPtr sourceObject = objectFromText(sourceUsage);
  const bool developer = hasUsage(usages.get(), developerObject);
  const bool source = hasUsage(usages.get(), sourceObject);
  if (developer == source)
    return std::nullopt;
  return developer ? Role::Developer : Role::Source;
}

std::string keyIdOf(X509* certificate) {
  unsigned char* der = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &der);
  const BufferPtr owner(der);
  std::array<unsigned char, 32> digest{};
  if (size < 0 || EVP_Digest(der, static_cast<std::size_t>(size), digest.data(), nullptr, EVP_sha256(), nullptr) != 1)
    return {};
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : digest) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

bool chainsToAuthority(const Certificate::Impl& certificate, const char* caPath, Dates dates) {
  // The store would take a file or the URI of something else as well.
  std::error_code ignored;
  if (caPath == nullptr || !std::filesystem::is_directory(caPath, ignored))
    return false;
  const StorePtr store(X509_STORE_new());
  // Not X509_STORE_load_path(): that one takes a ":" in the path for the end of a first directory.
  if (!store || X509_STORE_load_store(store.get(), caPath) != 1)
    return false;
  const StoreContextPtr context(X509_STORE_CTX_new());
  // No purpose is set: the one that OpenSSL has for CMS refuses certificates whose only extended key usage is ours.
  if (!context || X509_STORE_CTX_init(context.get(), store.get(), certificate.own.get(), certificate.others.get()) != 1)
    return false;
  if (dates == Dates::Ignored)
    X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_NO_CHECK_TIME);
  return X509_verify_cert(context.get()) == 1;
}

std::string subgroupToString(Subgroup subgroup) {
  switch (subgroup) {
  case Subgroup::Regular:
    return "regular";
  case Subgroup::System:
    return "system";
  case Subgroup::Extended:
    return "extended";
  case Subgroup::Unknown:
    break;
  }
  return "unknown";
}

Certificate::Certificate(std::shared_ptr<const Impl> impl) : m_impl(std::move(impl)) {}

bool Certificate::verify(const char* caPath) const {
  const ErrorQueueCleaner cleaner;
  return chainsToAuthority(*m_impl, caPath, Dates::Checked);
}

std::string Certificate::keyId() const {
  const ErrorQueueCleaner cleaner;
  return keyIdOf(m_impl->own.get());
}

Subgroup Certificate::subgroup() const {
  const ErrorQueueCleaner cleaner;
  const std::optional<std::string> unit = firstOrganizationalUnit(m_impl->own.get());
  if (!unit)
    return Subgroup::Regular;
  if (*unit == "system")
    return Subgroup::System;
  if (*unit == "extended")
    return Subgroup::Extended;
  return Subgroup::Unknown;
}

} // namespace PackageSignatures
