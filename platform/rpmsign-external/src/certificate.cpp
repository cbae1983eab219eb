// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/certificate.h"

#include "platform/rpmsign-external/src/cms.h"

#include <array>
#include <bitset>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <utility>

#include <sys/stat.h>

namespace PackageSignatures {

namespace {

/// The extended key usages of a certificate; null if it has none or they cannot be read.
UsagesPtr usagesOf(const X509* certificate) {
  return UsagesPtr(
      static_cast<STACK_OF(ASN1_OBJECT)*>(X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
}

bool hasUsage(const UsagesPtr& usages, const ASN1_OBJECT* wanted) {
  for (int i = 0; wanted != nullptr && i < sk_ASN1_OBJECT_num(usages.get()); ++i) {
    if (OBJ_cmp(sk_ASN1_OBJECT_value(usages.get(), i), wanted) == 0)
      return true;
  }
  return false;
}

// The objects are created once: encoding an arc of this length takes longer than the rest of the check.
const ASN1_OBJECT* developerObject() {
  static const ObjectPtr object = objectFromText(developerUsage);
  return object.get();
}

const ASN1_OBJECT* sourceObject() {
  static const ObjectPtr object = objectFromText(sourceUsage);
  return object.get();
}

bool mayCertifyFor(const X509* authority, const ASN1_OBJECT* usage) {
  if (X509_get_ext_by_NID(authority, NID_ext_key_usage, -1) < 0)
    return true;
  const UsagesPtr usages = usagesOf(authority);
  return hasUsage(usages, usage) || hasUsage(usages, OBJ_nid2obj(NID_anyExtendedKeyUsage));
}

/// True if every authority above the first certificate of `chain` may give the roles of that certificate. OpenSSL
/// checks the extended key usages of authorities only for its own purposes.
bool authoritiesMayGiveRoles(const STACK_OF(X509) * chain) {
  const UsagesPtr usages = usagesOf(sk_X509_value(chain, 0));
  for (const ASN1_OBJECT* role : {developerObject(), sourceObject()}) {
    for (int i = 1; hasUsage(usages, role) && i < sk_X509_num(chain); ++i) {
      if (!mayCertifyFor(sk_X509_value(chain, i), role))
        return false;
    }
  }
  return true;
}

constexpr auto problemCount = static_cast<std::size_t>(Problem::RotationBroken) + 1;

/// OpenSSL passes it to judge(). The problems are a bit set, because adding to it cannot throw.
struct Judgement {
  const Trust& trust;
  std::bitset<problemCount> problems = {};
};

/// True if there is a file for a revocation list of `issuer`, whatever its content, or if that is not certain. It
/// allocates nothing, because an exception must not pass through OpenSSL.
bool mayHaveRevocationList(const char* caPath, const X509_NAME* issuer) {
  int known = 0;
  const unsigned long hash = X509_NAME_hash_ex(issuer, nullptr, nullptr, &known);
  std::array<char, PATH_MAX> path{};
  const int size = std::snprintf(path.data(), path.size(), "%s/%08lx.r0", caPath, hash);
  struct stat status {};
  return known == 0 || size < 0 || static_cast<std::size_t>(size) >= path.size() || lstat(path.data(), &status) == 0 ||
         errno != ENOENT;
}

/// The problem behind an error of OpenSSL; nothing if the error does not count.
std::optional<Problem> problemOf(X509_STORE_CTX* context, const Trust& trust) {
  const bool datesCount = trust.dates == Dates::Checked;
  switch (X509_STORE_CTX_get_error(context)) {
  case X509_V_ERR_CERT_HAS_EXPIRED:
    return datesCount ? std::optional(Problem::Expired) : std::nullopt;
  case X509_V_ERR_CERT_NOT_YET_VALID:
    return datesCount ? std::optional(Problem::NotYetValid) : std::nullopt;
  case X509_V_ERR_CERT_REVOKED:
    return Problem::Revoked;
  case X509_V_ERR_UNABLE_TO_GET_CRL: {
    const X509_NAME* const issuer = X509_get_issuer_name(X509_STORE_CTX_get_current_cert(context));
    return mayHaveRevocationList(trust.caPath, issuer) ? std::optional(Problem::RevocationListUnusable) : std::nullopt;
  }
  case X509_V_ERR_CRL_HAS_EXPIRED:
  case X509_V_ERR_CRL_NOT_YET_VALID:
  case X509_V_ERR_CRL_SIGNATURE_FAILURE:
  case X509_V_ERR_CRL_PATH_VALIDATION_ERROR:
  case X509_V_ERR_DIFFERENT_CRL_SCOPE:
  case X509_V_ERR_ERROR_IN_CRL_LAST_UPDATE_FIELD:
  case X509_V_ERR_ERROR_IN_CRL_NEXT_UPDATE_FIELD:
  case X509_V_ERR_KEYUSAGE_NO_CRL_SIGN:
  case X509_V_ERR_UNABLE_TO_DECRYPT_CRL_SIGNATURE:
  case X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER:
  case X509_V_ERR_UNHANDLED_CRITICAL_CRL_EXTENSION:
    return Problem::RevocationListUnusable;
  case X509_V_ERR_EE_KEY_TOO_SMALL:
  case X509_V_ERR_CA_KEY_TOO_SMALL:
  case X509_V_ERR_CA_MD_TOO_WEAK:
    return Problem::Weak;
  default:
    return Problem::Untrusted;
  }
}

/// OpenSSL calls this for each error, and once without an error. Returns 1 to continue.
int judge(int ok, X509_STORE_CTX* context) {
  if (ok == 1)
    return 1;
  auto& judgement = *static_cast<Judgement*>(X509_STORE_CTX_get_app_data(context));
  const std::optional<Problem> problem = problemOf(context, judgement.trust);
  if (!problem)
    return 1;
  judgement.problems.set(static_cast<std::size_t>(*problem));
  return judgement.trust.extent == Extent::EveryProblem ? 1 : 0;
}

/// Sets no purpose: OpenSSL's purpose for CMS refuses certificates whose only extended key usage is ours. For
/// Dates::Ignored it does not set X509_V_FLAG_NO_CHECK_TIME, which would accept expired revocation lists.
void prepare(X509_STORE_CTX* context, Judgement& judgement) {
  X509_VERIFY_PARAM* const parameters = X509_STORE_CTX_get0_param(context);
  X509_VERIFY_PARAM_set_auth_level(parameters, 2);
  X509_VERIFY_PARAM_set_flags(parameters, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
  if (judgement.trust.at)
    X509_VERIFY_PARAM_set_time(parameters, *judgement.trust.at);
  X509_STORE_CTX_set_app_data(context, &judgement);
  X509_STORE_CTX_set_verify_cb(context, judge);
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
  const UsagesPtr usages = usagesOf(certificate);
  const bool developer = hasUsage(usages, developerObject());
  const bool source = hasUsage(usages, sourceObject());
  if (developer == source)
    return std::nullopt;
  return developer ? Role::Developer : Role::Source;
}

std::string keyIdOf(X509* certificate) {
  unsigned char* der = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &der);
  const BufferPtr owner(der);
  Digest digest{};
  if (size < 0 || EVP_Digest(der, static_cast<std::size_t>(size), digest.data(), nullptr, EVP_sha256(), nullptr) != 1)
    return {};
  return hexOf(digest);
}

std::string hexOf(const Digest& digest) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : digest) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

std::optional<Digest> digestOf(X509* certificate) {
  Digest digest{};
  if (X509_digest(certificate, EVP_sha256(), digest.data(), nullptr) != 1)
    return std::nullopt;
  return digest;
}

namespace {

/// The authorities of the directory. Null if it is no directory, or if OpenSSL fails.
StorePtr openStore(const char* caPath) {
  // The store would also accept a file or a URI.
  std::error_code ignored;
  if (caPath == nullptr || !std::filesystem::is_directory(caPath, ignored))
    return nullptr;
  StorePtr store(X509_STORE_new());
  // Not X509_STORE_load_path(), which splits the path at each ":".
  return store && X509_STORE_load_store(store.get(), caPath) == 1 ? std::move(store) : nullptr;
}

std::optional<std::time_t> earliestEndAbove(const STACK_OF(X509) * chain) {
  std::optional<std::time_t> earliest;
  for (int i = 1; i < sk_X509_num(chain); ++i) {
    const std::optional<std::time_t> end = toTime(X509_get0_notAfter(sk_X509_value(chain, i)));
    if (end && (!earliest || *end < *earliest))
      earliest = end;
  }
  return earliest;
}

} // namespace

ChainVerdict checkChain(const Certificate::Impl& certificate, const Trust& trust) {
  const StorePtr store = openStore(trust.caPath);
  const StoreContextPtr context(X509_STORE_CTX_new());
  if (!store || !context ||
      X509_STORE_CTX_init(context.get(), store.get(), certificate.own.get(), certificate.others.get()) != 1)
    return {.problems = {Problem::Untrusted}, .authoritiesNotAfter = {}};
  Judgement judgement{.trust = trust};
  prepare(context.get(), judgement);
  const bool verified = X509_verify_cert(context.get()) == 1;
  // Null if OpenSSL failed before it began.
  const STACK_OF(X509)* const chain = X509_STORE_CTX_get0_chain(context.get());

  ChainVerdict verdict{.problems = {}, .authoritiesNotAfter = earliestEndAbove(chain)};
  for (std::size_t i = 0; i < problemCount; ++i) {
    if (judgement.problems.test(i))
      verdict.problems.insert(static_cast<Problem>(i));
  }
  if (!verified && verdict.problems.empty())
    verdict.problems.insert(Problem::Untrusted);
  // A certificate without key usage may be used for everything.
  if ((X509_get_key_usage(certificate.own.get()) & KU_DIGITAL_SIGNATURE) == 0 ||
      (sk_X509_num(chain) > 0 && !authoritiesMayGiveRoles(chain)))
    verdict.problems.insert(Problem::UsageForbidden);
  return verdict;
}

std::optional<std::time_t> toTime(const ASN1_TIME* time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1)
    return std::nullopt;
  return timegm(&parts);
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
  std::string_view message = m_impl->message;
  const std::shared_ptr<const SignedData> data = takeSignedData(message, Keys::Decoded);
  return data && checkChain(*data->certificate, {.caPath = caPath}).problems.empty();
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
