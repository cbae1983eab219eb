// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

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
#include <rpm/rpmtypes.h>
#include <rpm/rpmver.h>

#include <memory>

/// Owners of librpm's handles. Call the maker on the line that obtains the handle; null stays null. Copies share the
/// handle, and the last copy releases it.
namespace Common::Rpm {

template <auto release, typename Handle>
std::shared_ptr<Handle> ownHandle(Handle* handle) {
  return {handle, [](Handle* owned) {
            if (owned != nullptr)
              release(owned);
          }};
}

using FileHandle = std::shared_ptr<std::remove_pointer_t<FD_t>>;
inline FileHandle ownFile(FD_t file) {
  return ownHandle<Fclose>(file);
}

using HeaderHandle = std::shared_ptr<std::remove_pointer_t<Header>>;
inline HeaderHandle ownHeader(Header header) {
  return ownHandle<headerFree>(header);
}

/// For a header that a database iterator owns: it is not released.
inline HeaderHandle borrowHeader(Header header) {
  return {header, [](Header) {}};
}

using HeaderIteratorHandle = std::shared_ptr<std::remove_pointer_t<HeaderIterator>>;
inline HeaderIteratorHandle ownHeaderIterator(HeaderIterator iterator) {
  return ownHandle<headerFreeIterator>(iterator);
}

using TransactionSetHandle = std::shared_ptr<std::remove_pointer_t<rpmts>>;
inline TransactionSetHandle ownTransactionSet(rpmts set) {
  return ownHandle<rpmtsFree>(set);
}

using TransactionLockHandle = std::shared_ptr<std::remove_pointer_t<rpmtxn>>;
inline TransactionLockHandle ownTransactionLock(rpmtxn lock) {
  return ownHandle<rpmtxnEnd>(lock);
}

using PackageIteratorHandle = std::shared_ptr<std::remove_pointer_t<rpmdbMatchIterator>>;
inline PackageIteratorHandle ownPackageIterator(rpmdbMatchIterator iterator) {
  return ownHandle<rpmdbFreeIterator>(iterator);
}

using DependencySetHandle = std::shared_ptr<std::remove_pointer_t<rpmds>>;
inline DependencySetHandle ownDependencySet(rpmds dependencies) {
  return ownHandle<rpmdsFree>(dependencies);
}

using FileSetHandle = std::shared_ptr<std::remove_pointer_t<rpmfiles>>;
inline FileSetHandle ownFileSet(rpmfiles files) {
  return ownHandle<rpmfilesFree>(files);
}

using FileIteratorHandle = std::shared_ptr<std::remove_pointer_t<rpmfi>>;
inline FileIteratorHandle ownFileIterator(rpmfi iterator) {
  return ownHandle<rpmfiFree>(iterator);
}

using KeyringHandle = std::shared_ptr<std::remove_pointer_t<rpmKeyring>>;
inline KeyringHandle ownKeyring(rpmKeyring keyring) {
  return ownHandle<rpmKeyringFree>(keyring);
}

using VersionHandle = std::shared_ptr<std::remove_pointer_t<rpmver>>;
inline VersionHandle ownVersion(rpmver version) {
  return ownHandle<rpmverFree>(version);
}

/// rpmtdFree() releases only the container, not the data that headerGet() allocated into it.
inline void releaseTagData(rpmtd data) {
  rpmtdFreeData(data);
  rpmtdFree(data);
}

using TagDataHandle = std::shared_ptr<std::remove_pointer_t<rpmtd>>;
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
