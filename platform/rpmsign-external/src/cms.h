// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/certificate.h"
#include "platform/rpmsign-external/src/handles.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace PackageSignatures {

/// A CMS SignedData with exactly one signer, whose certificate it carries.
struct SignedData {
  CmsPtr message;
  CMS_SignerInfo* signer; ///< a part of `message`
  std::shared_ptr<const Certificate::Impl> certificate;
};

/// True when a key in `bytes` may define a curve (SpecifiedECDomain of X9.62, whose field has an identifier under
/// 1.2.840.10045.1) instead of naming one. OpenSSL decodes every key at once, and a compressed point on a field made
/// for the purpose keeps it busy for a tenth of a second. The keys of certificates have to name their curve anyway (RFC
/// 5480, section 2.1.1).
bool mayDefineCurves(std::string_view bytes);

/// Takes one message in DER off the front of `bytes`; null when what stands there is anything else, and when
/// mayDefineCurves(bytes). The message has one signer with signed attributes, and its content is data.
[[nodiscard]] std::shared_ptr<const SignedData> takeSignedData(std::string_view& bytes);

/// The content that the message carries in itself; none when it is detached.
std::optional<std::string_view> attachedContent(const SignedData& data);

/// True when the signature holds for content with this SHA-256, and for the certificate that came with it. Who signed
/// is not looked at.
[[nodiscard]] bool signatureHolds(const SignedData& data, const Digest& content);

/// The elements of a sequence, given as OpenSSL keeps the value of an attribute: one whole DER value. Null when it is
/// anything else.
AnySequencePtr parseSequence(std::string_view der);

std::string_view viewOf(const ASN1_STRING* string);

struct Cms::Impl {
  std::shared_ptr<const SignedData> data;

  static const Impl& of(const Cms& cms) { return *cms.m_impl; }
};

/// All messages of a container; none when anything in it is out of form.
[[nodiscard]] std::optional<std::vector<Cms>> parseContainer(std::string_view container);

} // namespace PackageSignatures
