// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/cms.h"

#include <utility>

namespace PackageSignatures {

namespace {

/// The certificate that the signer's identifier names; null when there is none, and when there are two: OpenSSL, which
/// looks for it once more to verify, could take the other one.
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

} // namespace

bool mayDefineCurves(std::string_view bytes) {
  return bytes.find("\x2a\x86\x48\xce\x3d\x01") != std::string_view::npos; // the types of fields
}

std::shared_ptr<const SignedData> takeSignedData(std::string_view& bytes) {
  if (mayDefineCurves(bytes))
    return nullptr;
  const auto* const begin = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* end = begin;
  CmsPtr message(d2i_CMS_ContentInfo(nullptr, &end, static_cast<long>(bytes.size())));
  if (!message)
    return nullptr;
  CMS_SignerInfo* const signer = onlySigner(message.get());
  if (signer == nullptr || !usesSha256(signer))
    return nullptr;
  CertificatesPtr certificates(CMS_get1_certs(message.get()));
  CertificatePtr own = findSignerCertificate(signer, certificates.get());
  if (!own)
    return nullptr;
  bytes.remove_prefix(static_cast<std::size_t>(end - begin));
  auto certificate =
      std::make_shared<const Certificate::Impl>(Certificate::Impl{std::move(own), std::move(certificates)});
  return std::make_shared<const SignedData>(SignedData{std::move(message), signer, std::move(certificate)});
}

std::optional<std::string_view> attachedContent(const SignedData& data) {
  ASN1_OCTET_STRING** const content = CMS_get0_content(data.message.get());
  if (content == nullptr || *content == nullptr)
    return std::nullopt;
  return std::string_view(reinterpret_cast<const char*>(ASN1_STRING_get0_data(*content)),
                          static_cast<std::size_t>(ASN1_STRING_length(*content)));
}

bool signatureHolds(const SignedData& data, BIO* content) {
  return CMS_verify(data.message.get(), nullptr, nullptr, content, nullptr, CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) ==
         1;
}

std::optional<std::vector<Cms>> parseContainer(std::string_view container) {
  std::vector<Cms> cmses;
  while (!container.empty()) {
    std::shared_ptr<const SignedData> data = takeSignedData(container);
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
  return RotationChain(std::make_shared<const RotationChain::Impl>(readRotationChain(*m_impl->data)));
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
