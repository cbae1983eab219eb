// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/cms.h"

#include <rpmsign-external/package_signatures.h>

#include <memory>
#include <string>
#include <vector>

namespace PackageSignatures {

struct RotationChain::Impl {
  bool readable = true;
  std::vector<std::shared_ptr<const SignedData>> links;

  static const Impl& of(const RotationChain& chain) { return *chain.m_impl; }
};

/// Reads the chain that the signer put into the message.
RotationChain::Impl readRotationChain(const SignedData& data);

/// What an earlier key signs to vouch for the key that follows it.
std::string rotationText(const std::string& nextKeyId);

/// True when every link was made by a developer of an authority in `caPath` and vouches for the key that follows it,
/// the last one for `signerKeyId`. Certificates of earlier keys may have expired since.
[[nodiscard]] bool rotationHolds(const RotationChain::Impl& chain, const std::string& signerKeyId, const char* caPath);

} // namespace PackageSignatures
