// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/transaction.h"

#include "common/error/error.h"
#include "common/rpm/configuration.h"
#include "common/rpm/handles.h"

#include <rpm/rpmcli.h>

#include <sstream>

namespace Common::Rpm {

RpmTransaction::RpmTransaction(rpmtxnFlags flags) {
  ensureRpmConfig();
  m_set = ownTransactionSet(rpmtsCreate());
  rpmtsSetRootDir(m_set.get(), nullptr);
  m_lock = ownTransactionLock(rpmtxnBegin(m_set.get(), flags));
  if (!m_lock)
    throw Error(ErrorCode::Internal, "Couldn't begin rpm transaction");
}

void RpmTransaction::addFlags(rpmtransFlags flags) {
  rpmtsSetFlags(m_set.get(), rpmtsFlags(m_set.get()) | flags);
}

void RpmTransaction::showProgress() {
  // The callback reads its flags from the pointer that librpm passes to it.
  constexpr std::uintptr_t flags = INSTALL_LABEL | INSTALL_HASH;
  rpmtsSetNotifyCallback(m_set.get(), rpmShowProgress, reinterpret_cast<void*>(flags));
}

void RpmTransaction::erase(const Reader& reader) {
  if (rpmtsAddEraseElement(m_set.get(), reader.header().get(), 0) != 0)
    throw Error(ErrorCode::Internal, "Couldn't add erase element to the RPM transaction");
}

void RpmTransaction::run() {
  if (rpmtsRun(m_set.get(), nullptr, 0) < 0)
    throw Error(ErrorCode::Internal, "Couldn't run rpm transaction");
}

PackageIteratorHandle RpmTransaction::installedPackages() const {
  ensureRpmConfig();
  return ownPackageIterator(rpmtsInitIterator(m_set.get(), RPMDBI_PACKAGES, nullptr, 0));
}

void RpmTransaction::forEachInstalled(const PackageIteratorHandle& packages,
                                      const std::function<void(const Reader&)>& visitor) {
  while (Header header = rpmdbNextIterator(packages.get()))
    visitor(Reader(header));
}

std::vector<std::string> RpmTransaction::dependencyNames(const Reader& reader, std::int32_t tag) {
  std::vector<std::string> names;
  const DependencySetHandle dependencies = reader.dependencies(tag);
  while (rpmdsNext(dependencies.get()) >= 0) {
    const char* text = rpmdsDNEVR(dependencies.get());
    std::istringstream words(text != nullptr ? text : "");
    std::string type;
    std::string name;
    if (words >> type >> name)
      names.push_back(name);
  }
  return names;
}

} // namespace Common::Rpm
