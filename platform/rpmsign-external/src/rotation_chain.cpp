// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/rotation_chain.h"

#include <algorithm>
#include <utility>

namespace PackageSignatures {

namespace {

std::shared_ptr<const SignedData> parseLink(const ASN1_TYPE& element, Keys keys) {
  if (element.type != V_ASN1_OCTET_STRING)
    return nullptr;
  std::string_view bytes = viewOf(element.value.octet_string);
  std::shared_ptr<const SignedData> link = takeSignedData(bytes, keys);
  return link && bytes.empty() && attachedContent(*link) ? link : nullptr;
}

bool readLinks(CMS_SignerInfo* signer, const ASN1_OBJECT* attribute, Keys keys, RotationChain::Impl& chain) {
  // -3: the attribute occurs once and has one value.
  const auto* const sequence =
      static_cast<const ASN1_STRING*>(CMS_signed_get0_data_by_OBJ(signer, attribute, -3, V_ASN1_SEQUENCE));
  if (sequence == nullptr)
    return false;
  const AnySequencePtr elements = parseSequence(viewOf(sequence));
  if (!elements)
    return false;
  for (int i = 0; i < sk_ASN1_TYPE_num(elements.get()); ++i) {
    std::shared_ptr<const SignedData> link = parseLink(*sk_ASN1_TYPE_value(elements.get(), i), keys);
    if (!link)
      return false;
    chain.links.push_back(std::move(link));
  }
  return true;
}

} // namespace

RotationChain::Impl readRotationChain(const SignedData& data, Keys keys) {
  RotationChain::Impl chain;
  static const ObjectPtr attribute = objectFromText(rotationAttribute); // created once, because encoding the arc is
                                                                        // slow
  if (attribute && CMS_signed_get_attr_by_OBJ(data.signer, attribute.get(), -1) < 0)
    return chain;
  if (!attribute || !readLinks(data.signer, attribute.get(), keys, chain))
    return {.readable = false, .links = {}};
  return chain;
}

std::string rotationText(const std::string& nextKeyId) {
  return "krv-key-rotation:" + nextKeyId;
}

namespace {

/// True if the signature of a link is valid for the text that vouches for `nextKeyId`.
bool vouchesFor(const SignedData& link, const std::string& nextKeyId) {
  const std::string text = rotationText(nextKeyId);
  Digest digest{};
  return attachedContent(link) == text &&
         EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) == 1 &&
         signatureHolds(link, digest);
}

} // namespace

std::vector<EarlierKey> checkRotation(const RotationChain::Impl& chain, const std::string& signerKeyId, Trust trust) {
  trust.dates = Dates::Ignored;
  std::vector<EarlierKey> keys;
  std::string nextKeyId = signerKeyId;
  for (auto link = chain.links.rbegin(); link != chain.links.rend(); ++link) {
    const Certificate::Impl& certificate = *(*link)->certificate;
    EarlierKey key{.keyId = keyIdOf(certificate.own.get()), .problems = checkChain(certificate, trust).problems};
    if (roleOf(certificate.own.get()) != Role::Developer)
      key.problems.insert(Problem::RoleMissing);
    if (!vouchesFor(**link, nextKeyId))
      key.problems.insert(Problem::SignatureBroken);
    nextKeyId = key.keyId;
    keys.push_back(std::move(key));
    if (trust.extent == Extent::FirstProblem && !keys.back().problems.empty())
      break;
  }
  std::ranges::reverse(keys);
  return keys;
}

RotationChain::RotationChain(std::shared_ptr<const Impl> impl) : m_impl(std::move(impl)) {}

std::vector<std::string> RotationChain::previousKeyids() const {
  const ErrorQueueCleaner cleaner;
  std::vector<std::string> keyIds;
  for (const std::shared_ptr<const SignedData>& link : m_impl->links)
    keyIds.push_back(keyIdOf(link->certificate->own.get()));
  return keyIds;
}

} // namespace PackageSignatures
