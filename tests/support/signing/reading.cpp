// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/signing/reading.h"

#include "platform/rpmsign-external/src/cms.h"
#include "platform/rpmsign-external/src/rotation_chain.h"

#include <optional>

namespace Support {

namespace {

using PackageSignatures::Keys;
using PackageSignatures::SignedData;

std::string keysOf(const SignedData& data) {
  return PackageSignatures::keyIdOf(data.certificate->own.get()) + " of " +
         std::to_string(sk_X509_num(data.certificate->others.get()));
}

std::string answerFor(const SignedData& data, Keys keys) {
  const std::optional<PackageSignatures::Role> role = PackageSignatures::roleOf(data.certificate->own.get());
  const auto subgroup = PackageSignatures::Certificate(data.certificate).subgroup();
  std::string answer = "key " + keysOf(data) + " role " + (role ? std::to_string(static_cast<int>(*role)) : "none") +
                       " subgroup " + PackageSignatures::subgroupToString(subgroup) + " text " +
                       std::string(PackageSignatures::attachedContent(data).value_or("none"));
  const PackageSignatures::RotationChain::Impl chain = PackageSignatures::readRotationChain(data, keys);
  answer += chain.readable ? " earlier" : " unreadable chain";
  for (const auto& link : chain.links)
    answer += ' ' + keysOf(*link);
  return answer;
}

std::string answer(std::string_view& container, Keys keys) {
  const std::size_t before = container.size();
  const auto data = PackageSignatures::takeSignedData(container, keys);
  if (!data)
    return "unreadable";
  return answerFor(*data, keys) + " in " + std::to_string(before - container.size()) + " bytes";
}

} // namespace

std::string differenceWithKeys(std::string_view container) {
  const PackageSignatures::ErrorQueueCleaner cleaner;
  bool isReadable = true;
  while (isReadable && !container.empty()) {
    std::string_view rest = container;
    const std::string withKeys = answer(rest, Keys::Decoded);
    const std::string withoutKeys = answer(container, Keys::Skipped);
    if (withKeys != withoutKeys)
      return "with keys: " + withKeys + "\nwithout keys: " + withoutKeys;
    isReadable = withKeys != "unreadable";
  }
  return {};
}

} // namespace Support
