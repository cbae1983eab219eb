// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/sha256.h"

#include "common/rpm/handles.h"

#include <cstdlib>
#include <new>

namespace Common::Rpm {

namespace {

DIGEST_CTX contextOf(const std::shared_ptr<void>& digest) {
  return static_cast<DIGEST_CTX>(digest.get());
}

} // namespace

Sha256::Sha256() : m_digest(ownDigest(rpmDigestInit(RPM_HASH_SHA256, RPMDIGEST_NONE))) {
  if (!m_digest)
    throw std::bad_alloc();
}

void Sha256::add(std::string_view bytes) {
  rpmDigestUpdate(contextOf(m_digest), bytes.data(), bytes.size());
}

std::string Sha256::digits() const {
  void* found = nullptr;
  rpmDigestFinal(rpmDigestDup(contextOf(m_digest)), &found, nullptr, 1);
  const std::unique_ptr<void, decltype(&std::free)> owned(found, &std::free);
  return found != nullptr ? static_cast<const char*>(found) : "";
}

} // namespace Common::Rpm
