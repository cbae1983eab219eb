// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpm/header.h>
#include <rpm/rpmio.h>
#include <rpm/rpmkeyring.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>
#include <rpm/rpmtypes.h>
#include <rpm/rpmver.h>

#include <memory>

/// Owners of librpm's handles. A maker takes the handle on the very line that obtains it; null stays null. Copies
/// share the handle and the last one releases it.
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

/// For a header that a database iterator owns: nothing is released.
inline HeaderHandle borrowHeader(Header header) {
  return {header, [](Header) {}};
}

using TransactionSetHandle = std::shared_ptr<std::remove_pointer_t<rpmts>>;
inline TransactionSetHandle ownTransactionSet(rpmts set) {
  return ownHandle<rpmtsFree>(set);
}

using KeyringHandle = std::shared_ptr<std::remove_pointer_t<rpmKeyring>>;
inline KeyringHandle ownKeyring(rpmKeyring keyring) {
  return ownHandle<rpmKeyringFree>(keyring);
}

using VersionHandle = std::shared_ptr<std::remove_pointer_t<rpmver>>;
inline VersionHandle ownVersion(rpmver version) {
  return ownHandle<rpmverFree>(version);
}

/// rpmtdFree releases the container alone, not the data that headerGet allocated into it.
inline void releaseTagData(rpmtd data) {
  rpmtdFreeData(data);
  rpmtdFree(data);
}

using TagDataHandle = std::shared_ptr<std::remove_pointer_t<rpmtd>>;
inline TagDataHandle ownTagData(rpmtd data) {
  return ownHandle<releaseTagData>(data);
}

} // namespace Common::Rpm
