// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "platform/rpmsign-external/src/certificate.h"
#include "platform/rpmsign-external/src/cms.h"

#include <rpmsign-external/package_signatures.h>
#include <rpmsign-external/verification.h>

#include <memory>
#include <string>
#include <vector>

namespace PackageSignatures {

struct RotationChain::Impl {
  bool readable = true;
  std::vector<std::shared_ptr<const SignedData>> links;

  static const Impl& of(const RotationChain& chain) { return *chain.m_impl; }
};

/// Reads the chain that the signer put into the message. `keys` is for the links.
RotationChain::Impl readRotationChain(const SignedData& data, Keys keys);

/// What an earlier key signs to vouch for the key that follows it.
std::string rotationText(const std::string& nextKeyId);

/// The keys of the chain with their problems, oldest first: each must be a developer's with a good chain to an
/// authority, whose dates are not checked, and vouch for the key that follows it, the last one for `signerKeyId`. With
/// Extent::FirstProblem it stops after the first bad link, from the newest to the oldest.
std::vector<EarlierKey> checkRotation(const RotationChain::Impl& chain, const std::string& signerKeyId, Trust trust);

} // namespace PackageSignatures
