// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <rpm/rpmtypes.h>

#include <memory>
#include <type_traits>

/// Owners of librpm's handles, for headers. Copies share the handle and the last one releases it. The makers are in
/// common/rpm/handles.h, with librpm's own headers.
namespace Common::Rpm {

using FileHandle = std::shared_ptr<std::remove_pointer_t<FD_t>>;
using HeaderHandle = std::shared_ptr<std::remove_pointer_t<Header>>;
using HeaderIteratorHandle = std::shared_ptr<std::remove_pointer_t<HeaderIterator>>;
using TransactionSetHandle = std::shared_ptr<std::remove_pointer_t<rpmts>>;
using TransactionLockHandle = std::shared_ptr<std::remove_pointer_t<rpmtxn>>;
using PackageIteratorHandle = std::shared_ptr<std::remove_pointer_t<rpmdbMatchIterator>>;
using DependencySetHandle = std::shared_ptr<std::remove_pointer_t<rpmds>>;
using FileSetHandle = std::shared_ptr<std::remove_pointer_t<rpmfiles>>;
using FileIteratorHandle = std::shared_ptr<std::remove_pointer_t<rpmfi>>;
using KeyringHandle = std::shared_ptr<std::remove_pointer_t<rpmKeyring>>;
using VersionHandle = std::shared_ptr<std::remove_pointer_t<rpmver>>;
using TagDataHandle = std::shared_ptr<std::remove_pointer_t<rpmtd>>;

} // namespace Common::Rpm
