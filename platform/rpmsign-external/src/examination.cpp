// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "platform/rpmsign-external/src/examination.h"

#include "platform/rpmsign-external/src/cms.h"
#include "platform/rpmsign-external/src/package_file.h"
#include "platform/rpmsign-external/src/rotation_chain.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace PackageSignatures {

namespace {

using Messages = std::vector<std::shared_ptr<const SignedData>>;

Messages decodeKeys(const std::vector<Cms>& cmses) {
  Messages messages;
  for (const Cms& cms : cmses)
    messages.push_back(withKeys(Cms::Impl::of(cms).data));
  return messages;
}

/// Readers use only the first message of a role, so a second one could replace or hide a signer.
void checkRoles(const Messages& messages, Verification& result) {
  std::map<std::optional<Role>, std::vector<std::size_t>> signersOf;
  for (std::size_t i = 0; i < messages.size(); ++i)
    signersOf[roleOf(messages[i]->certificate->own.get())].push_back(i);
  for (const auto& [role, signers] : signersOf) {
    for (const std::size_t i : signers) {
      if (!role)
        result.cmses[i].problems.insert(Problem::RoleMissing);
      else if (signers.size() > 1)
        result.cmses[i].problems.insert(Problem::RoleTwice);
    }
  }
}

void checkSigner(const SignedData& data, const Trust& trust, CmsVerification& result) {
  ChainVerdict verdict = checkChain(*data.certificate, trust);
  result.problems.merge(verdict.problems);
  result.authoritiesNotAfter = verdict.authoritiesNotAfter;
  if (trust.extent == Extent::FirstProblem && !result.problems.empty())
    return;
  const RotationChain::Impl chain = readRotationChain(data, Keys::Decoded);
  result.earlierKeys = checkRotation(chain, keyIdOf(data.certificate->own.get()), trust);
  if (!chain.readable ||
      std::ranges::any_of(result.earlierKeys, [](const EarlierKey& key) { return !key.problems.empty(); }))
    result.problems.insert(Problem::RotationBroken);
}

class Sha256 {
public:
  Sha256() : m_context(EVP_MD_CTX_new()) {
    m_works = m_context && EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) == 1;
  }

  void add(std::string_view bytes) {
    m_works = m_works && EVP_DigestUpdate(m_context.get(), bytes.data(), bytes.size()) == 1;
  }

  /// Nothing if OpenSSL fails.
  std::optional<Digest> finish() {
    Digest digest{};
    m_works = m_works && EVP_DigestFinal_ex(m_context.get(), digest.data(), nullptr) == 1;
    return m_works ? std::optional(digest) : std::nullopt;
  }

private:
  DigestContextPtr m_context;
  bool m_works;
};

/// Reads the content, and for the file's digest also the part before it. Returns the SHA-256 of the content; nothing if
/// it cannot be read or is no RPM header. The check uses the same bytes as the digest, because another process may
/// write to the file.
std::optional<Digest> readContent(const FileWithCmses::Impl& file, FileDigest wanted, Verification& result) {
  Sha256 content;
  Sha256 whole;
  std::string start;
  off_t position = wanted == FileDigest::Computed ? 0 : file.contentOffset;
  const bool read = forEachBlock(file.file.get(), position, [&](std::string_view block) {
    if (wanted == FileDigest::Computed)
      whole.add(block);
    const off_t before = std::clamp<off_t>(file.contentOffset - position, 0, static_cast<off_t>(block.size()));
    position += static_cast<off_t>(block.size());
    block.remove_prefix(static_cast<std::size_t>(before));
    if (start.size() < headerMagicSize)
      start += block.substr(0, headerMagicSize);
    content.add(block);
  });
  if (read && wanted == FileDigest::Computed) {
    if (const std::optional<Digest> digest = whole.finish())
      result.fileDigest = hexOf(*digest);
  }
  std::optional<Digest> digest = content.finish();
  if (!read || !digest) {
    result.problems.insert(Problem::ContentUnreadable);
    return std::nullopt;
  }
  if (!beginsAsHeader(start)) {
    result.problems.insert(Problem::ContentIsNoHeader);
    return std::nullopt;
  }
  return digest;
}

} // namespace

Verification examine(const FileWithCmses::Impl& file, const VerificationRequest& request, Extent extent) {
  Verification result;
  const auto isDecided = [&] { return extent == Extent::FirstProblem && !result.isGood(); };
  const Messages messages = decodeKeys(file.cmses);
  result.cmses.resize(messages.size());
  if (messages.empty())
    result.problems.insert(Problem::Unsigned);
  checkRoles(messages, result);
  const Trust trust{.caPath = request.caPath, .at = request.at, .dates = Dates::Checked, .extent = extent};
  for (std::size_t i = 0; i < messages.size() && !isDecided(); ++i)
    checkSigner(*messages[i], trust, result.cmses[i]);
  if (isDecided())
    return result;
  const std::optional<Digest> digest = readContent(file, request.fileDigest, result);
  for (std::size_t i = 0; digest && i < messages.size(); ++i) {
    if (!signatureHolds(*messages[i], *digest))
      result.cmses[i].problems.insert(Problem::SignatureBroken);
  }
  return result;
}

} // namespace PackageSignatures
