// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"

#include <rpm/header.h>
#include <rpm/rpmcrypto.h>
#include <rpm/rpmdb.h>
#include <rpm/rpmds.h>
#include <rpm/rpmfi.h>
#include <rpm/rpmfiles.h>
#include <rpm/rpmio.h>
#include <rpm/rpmkeyring.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>
#include <rpm/rpmver.h>

#include <memory>

/// Makers of the owners of librpm's handles. Call a maker on the line that obtains the handle; null stays null.
namespace Common::Rpm {

template <auto release, typename Handle>
std::shared_ptr<Handle> ownHandle(Handle* handle) {
  return {handle, [](Handle* owned) {
            if (owned != nullptr)
              release(owned);
          }};
}

inline FileHandle ownFile(FD_t file) {
  return ownHandle<Fclose>(file);
}

inline HeaderHandle ownHeader(Header header) {
  return ownHandle<headerFree>(header);
}

/// For a header that a database iterator owns: it is not released.
inline HeaderHandle borrowHeader(Header header) {
  return {header, [](Header) {}};
}

inline HeaderIteratorHandle ownHeaderIterator(HeaderIterator iterator) {
  return ownHandle<headerFreeIterator>(iterator);
}

inline TransactionSetHandle ownTransactionSet(rpmts set) {
  return ownHandle<rpmtsFree>(set);
}

inline TransactionLockHandle ownTransactionLock(rpmtxn lock) {
  return ownHandle<rpmtxnEnd>(lock);
}

inline PackageIteratorHandle ownPackageIterator(rpmdbMatchIterator iterator) {
  return ownHandle<rpmdbFreeIterator>(iterator);
}

inline DependencySetHandle ownDependencySet(rpmds dependencies) {
  return ownHandle<rpmdsFree>(dependencies);
}

inline FileSetHandle ownFileSet(rpmfiles files) {
  return ownHandle<rpmfilesFree>(files);
}

inline FileIteratorHandle ownFileIterator(rpmfi iterator) {
  return ownHandle<rpmfiFree>(iterator);
}

inline KeyringHandle ownKeyring(rpmKeyring keyring) {
  return ownHandle<rpmKeyringFree>(keyring);
}

inline VersionHandle ownVersion(rpmver version) {
  return ownHandle<rpmverFree>(version);
}

/// rpmtdFree() releases only the container, not the data that headerGet() allocated into it.
inline void releaseTagData(rpmtd data) {
  rpmtdFreeData(data);
  rpmtdFree(data);
}

inline TagDataHandle ownTagData(rpmtd data) {
  return ownHandle<releaseTagData>(data);
}

/// librpm has no other function that releases a digest.
inline void releaseDigest(DIGEST_CTX digest) {
  rpmDigestFinal(digest, nullptr, nullptr, 0);
}

using DigestHandle = std::shared_ptr<std::remove_pointer_t<DIGEST_CTX>>;
inline DigestHandle ownDigest(DIGEST_CTX digest) {
  return ownHandle<releaseDigest>(digest);
}

} // namespace Common::Rpm
