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

/// A CMS SignedData with exactly one signer; contains the signer's certificate.
struct SignedData {
  CmsPtr message;
  CMS_SignerInfo* signer; ///< a part of `message`
  std::shared_ptr<const Certificate::Impl> certificate;
};

/// Whether a parse decodes the public keys of the certificates. It takes seven times as long with them, and only
/// verification needs them: a key id is the digest of an encoded key.
enum class Keys {
  Skipped,
  Decoded,
};

/// True if a key in `bytes` may define its curve (SpecifiedECDomain of X9.62, whose field has an identifier under
/// 1.2.840.10045.1) instead of naming it. To decode a compressed point on a crafted field takes OpenSSL a tenth
/// of a second. The keys of certificates must name their curve anyway (RFC 5480, section 2.1.1).
bool mayDefineCurves(std::string_view bytes);

/// Parses one message in DER at the beginning of `bytes` and removes it from `bytes`. The message must have one signer
/// with signed attributes, and its content type must be data. Returns null for anything else, and if
/// mayDefineCurves(bytes). The answer does not depend on `keys`.
[[nodiscard]] std::shared_ptr<const SignedData> takeSignedData(std::string_view& bytes, Keys keys);

/// Parses the message again, with its keys. If OpenSSL refuses it then, returns `data`, which does not verify.
[[nodiscard]] std::shared_ptr<const SignedData> withKeys(const std::shared_ptr<const SignedData>& data);

/// The content inside the message; nothing if the message is detached.
std::optional<std::string_view> attachedContent(const SignedData& data);

/// True if the signature is valid for content with this SHA-256 and for the certificate in the message. Does not check
/// whether the certificate is trusted. False without keys.
[[nodiscard]] bool signatureHolds(const SignedData& data, const Digest& content);

/// The elements of a sequence. `der` is one DER value, in the form in which OpenSSL stores the value of an attribute.
/// Null if it is not a sequence.
AnySequencePtr parseSequence(std::string_view der);

std::string_view viewOf(const ASN1_STRING* string);

struct Cms::Impl {
  std::shared_ptr<const SignedData> data;

  static const Impl& of(const Cms& cms) { return *cms.m_impl; }
};

/// All messages of a container; none when anything in it is out of form.
[[nodiscard]] std::optional<std::vector<Cms>> parseContainer(std::string_view container);

} // namespace PackageSignatures
