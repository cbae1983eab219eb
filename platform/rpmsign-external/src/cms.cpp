// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/cms.h"

#include "platform/rpmsign-external/src/rotation_chain.h"

#include <cstring>
#include <utility>

namespace PackageSignatures {

namespace {

/// A library context without algorithms, in which OpenSSL leaves keys as bytes. Null, which means the ordinary context,
/// if there is no memory for it.
OSSL_LIB_CTX* contextWithoutAlgorithms() {
  static const LibraryPtr context(OSSL_LIB_CTX_new());
  // Without a provider OpenSSL would load its default one.
  static const ProviderPtr provider(context ? OSSL_PROVIDER_load(context.get(), "null") : nullptr);
  return context.get();
}

/// Decodes the message at `position` and moves `position` behind it.
CmsPtr decode(const unsigned char*& position, std::size_t size, Keys keys) {
  OSSL_LIB_CTX* const context = keys == Keys::Decoded ? nullptr : contextWithoutAlgorithms();
  CMS_ContentInfo* message = CMS_ContentInfo_new_ex(context, nullptr);
  d2i_CMS_ContentInfo(&message, &position, static_cast<long>(size)); // on failure frees the message and makes it null
  return CmsPtr(message);
}

bool isNamedByKeyIdentifier(CMS_SignerInfo* signer) {
  ASN1_OCTET_STRING* identifier = nullptr;
  return CMS_SignerInfo_get0_signer_id(signer, &identifier, nullptr, nullptr) == 1 && identifier != nullptr;
}

/// The certificate that the signer's identifier names. Null if there is none or more than one: to verify, OpenSSL looks
/// it up again and could find the other one.
CertificatePtr findSignerCertificate(CMS_SignerInfo* signer, const STACK_OF(X509) * certificates) {
  CertificatePtr found;
  for (int i = 0; i < sk_X509_num(certificates); ++i) {
    X509* candidate = sk_X509_value(certificates, i);
    if (CMS_SignerInfo_cert_cmp(signer, candidate) != 0)
      continue;
    if (found)
      return nullptr;
    X509_up_ref(candidate);
    found.reset(candidate);
  }
  return found;
}

bool usesSha256(CMS_SignerInfo* signer) {
  X509_ALGOR* digest = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
  const ASN1_OBJECT* algorithm = nullptr;
  X509_ALGOR_get0(&algorithm, nullptr, nullptr, digest);
  return OBJ_obj2nid(algorithm) == NID_sha256;
}

CMS_SignerInfo* onlySigner(CMS_ContentInfo* message) {
  if (OBJ_obj2nid(CMS_get0_type(message)) != NID_pkcs7_signed)
    return nullptr;
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(message);
  return sk_CMS_SignerInfo_num(signers) == 1 ? sk_CMS_SignerInfo_value(signers, 0) : nullptr;
}

/// True if `bytes` is a sequence of DER values whose lengths, also those of nested values, have the shortest form.
/// isEncodedAs() does not find this: OpenSSL keeps names and the signed part of a certificate in their original
/// encoding.
bool hasShortestLengths(std::string_view bytes) {
  while (bytes.size() >= 2) {
    const auto tag = static_cast<unsigned char>(bytes[0]);
    std::size_t length = static_cast<unsigned char>(bytes[1]);
    const std::size_t count = length < 0x80 ? 0 : length & 0x7F;
    bytes.remove_prefix(2);
    if (count > bytes.size() || count > 4 || (length >= 0x80 && count == 0) || (tag & 0x1F) == 0x1F)
      return false;
    if (count > 0) {
      length = 0;
      for (const char byte : bytes.substr(0, count))
        length = length << 8 | static_cast<unsigned char>(byte);
      if (length < 0x80 || length >> 8 * (count - 1) == 0)
        return false;
      bytes.remove_prefix(count);
    }
    const bool constructed = (tag & 0x20) != 0;
    if (length > bytes.size())
      return false;
    bytes.remove_prefix(constructed ? 0 : length);
  }
  return bytes.empty();
}

bool isEncodedAs(const CMS_ContentInfo* message, std::string_view bytes) {
  unsigned char* der = nullptr;
  const int size = i2d_CMS_ContentInfo(message, &der);
  const BufferPtr owner(der);
  return size >= 0 && std::string_view(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size)) == bytes;
}

bool isData(const ASN1_OBJECT* type) {
  return OBJ_obj2nid(type) == NID_pkcs7_data;
}

/// The value of the signed attribute. Null unless the attribute occurs once, with one value of this type.
template <typename Value>
const Value* signedValue(CMS_SignerInfo* signer, int attribute, int type) {
  return static_cast<const Value*>(CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(attribute), -3, type));
}

bool equals(std::string_view bytes, const std::optional<Digest>& digest) {
  return digest && bytes.size() == digest->size() && std::memcmp(bytes.data(), digest->data(), digest->size()) == 0;
}

/// The first element of a sequence; empty if it is not of `type` or `der` is not a sequence.
std::string firstOf(std::string_view der, int type) {
  const AnySequencePtr elements = parseSequence(der);
  if (sk_ASN1_TYPE_num(elements.get()) < 1)
    return {};
  const ASN1_TYPE* const first = sk_ASN1_TYPE_value(elements.get(), 0);
  return first->type == type ? std::string(viewOf(first->value.asn1_string)) : std::string();
}

/// True if the signed attributes name the signer's certificate (RFC 5035). Otherwise another certificate of the same
/// key, with another role or subgroup, could replace it. The first digest belongs to the signer's certificate; for
/// SHA-256 its algorithm, which would come before it, is absent.
bool namesCertificate(const SignedData& data) {
  const auto* const value =
      signedValue<ASN1_STRING>(data.signer, NID_id_smime_aa_signingCertificateV2, V_ASN1_SEQUENCE);
  if (value == nullptr)
    return false;
  const std::string identifier = firstOf(firstOf(viewOf(value), V_ASN1_SEQUENCE), V_ASN1_SEQUENCE);
  return equals(firstOf(identifier, V_ASN1_OCTET_STRING), digestOf(data.certificate->own.get()));
}

} // namespace

std::string_view viewOf(const ASN1_STRING* string) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(string)),
          static_cast<std::size_t>(ASN1_STRING_length(string))};
}

AnySequencePtr parseSequence(std::string_view der) {
  const auto* position = reinterpret_cast<const unsigned char*>(der.data());
  return AnySequencePtr(d2i_ASN1_SEQUENCE_ANY(nullptr, &position, static_cast<long>(der.size())));
}

bool mayDefineCurves(std::string_view bytes) {
  return bytes.find("\x2a\x86\x48\xce\x3d\x01") != std::string_view::npos; // the prefix of all field types,
                                                                           // 1.2.840.10045.1
}

std::shared_ptr<const SignedData> takeSignedData(std::string_view& bytes, Keys keys) {
  if (mayDefineCurves(bytes))
    return nullptr;
  const auto* const begin = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* end = begin;
  CmsPtr message = decode(end, bytes.size(), keys);
  CMS_SignerInfo* const signer = message ? onlySigner(message.get()) : nullptr;
  // To compare key identifiers OpenSSL needs a digest algorithm.
  if (keys == Keys::Skipped && signer != nullptr && isNamedByKeyIdentifier(signer))
    return takeSignedData(bytes, Keys::Decoded);
  const std::string_view encoded = bytes.substr(0, static_cast<std::size_t>(end - begin));
  if (signer == nullptr || !usesSha256(signer) || CMS_signed_get_attr_count(signer) < 1 ||
      !isData(CMS_get0_eContentType(message.get())) || !hasShortestLengths(encoded) ||
      !isEncodedAs(message.get(), encoded))
    return nullptr;
  CertificatesPtr certificates(CMS_get1_certs(message.get()));
  CertificatePtr own = findSignerCertificate(signer, certificates.get());
  if (!own)
    return nullptr;
  bytes.remove_prefix(encoded.size());
  auto certificate = std::make_shared<const Certificate::Impl>(
      Certificate::Impl{std::move(own), std::move(certificates), std::string(encoded)});
  return std::make_shared<const SignedData>(SignedData{std::move(message), signer, std::move(certificate)});
}

std::shared_ptr<const SignedData> withKeys(const std::shared_ptr<const SignedData>& data) {
  std::string_view message = data->certificate->message;
  const std::shared_ptr<const SignedData> decoded = takeSignedData(message, Keys::Decoded);
  return decoded ? decoded : data;
}

std::optional<std::string_view> attachedContent(const SignedData& data) {
  ASN1_OCTET_STRING** const content = CMS_get0_content(data.message.get());
  if (content == nullptr || *content == nullptr)
    return std::nullopt;
  return viewOf(*content);
}

// Not CMS_verify(): it would read the content again for each message, and it accepts messages without signed
// attributes.
bool signatureHolds(const SignedData& data, const Digest& content) {
  const auto* const type = signedValue<ASN1_OBJECT>(data.signer, NID_pkcs9_contentType, V_ASN1_OBJECT);
  const auto* const digest = signedValue<ASN1_STRING>(data.signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING);
  if (!isData(type) || digest == nullptr || !equals(viewOf(digest), content) || !namesCertificate(data))
    return false;
  CMS_SignerInfo_set1_signer_cert(data.signer, data.certificate->own.get());
  return CMS_SignerInfo_verify(data.signer) == 1;
}

std::optional<std::vector<Cms>> parseContainer(std::string_view container) {
  std::vector<Cms> cmses;
  while (!container.empty()) {
    std::shared_ptr<const SignedData> data = takeSignedData(container, Keys::Skipped);
    if (!data || attachedContent(*data))
      return std::nullopt;
    cmses.emplace_back(std::make_shared<const Cms::Impl>(Cms::Impl{std::move(data)}));
  }
  return cmses;
}

Cms::Cms(std::shared_ptr<const Impl> impl) : m_impl(std::move(impl)) {}

std::shared_ptr<const Certificate> Cms::certificate() const {
  return std::make_shared<const Certificate>(m_impl->data->certificate);
}

RotationChain Cms::rotationChain() const {
  const ErrorQueueCleaner cleaner;
  return RotationChain(std::make_shared<const RotationChain::Impl>(readRotationChain(*m_impl->data, Keys::Skipped)));
}

namespace {

std::optional<Cms> firstWithRole(const std::vector<Cms>& cmses, Role role) {
  const ErrorQueueCleaner cleaner;
  for (const Cms& cms : cmses) {
    if (roleOf(Cms::Impl::of(cms).data->certificate->own.get()) == role)
      return cms;
  }
  return std::nullopt;
}

} // namespace

std::optional<Cms> developerCmsFromVector(const std::vector<Cms>& cmses) {
  return firstWithRole(cmses, Role::Developer);
}

std::optional<Cms> clientCmsFromVector(const std::vector<Cms>& cmses) {
  return firstWithRole(cmses, Role::Source);
}

} // namespace PackageSignatures
