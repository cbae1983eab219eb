// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/package_store.h"

#include "common/error/error.h"
#include "common/rpm/reader.h"
#include "common/signatures/package_cmses.h"
#include "core/registry.h"

#include <chrono>
#include <utility>

namespace Sandbox {

namespace {

using Common::Error;
using Common::ErrorCode;
using Core::KRV::RegistryRecord;

/// A registry that cannot be written has said so in the log. Nothing is undone for it: the package counts all the same.
void writeEvent(RegistryRecord::Event event, const std::string& name, const StoredPackage& package) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const RegistryRecord record{event, std::chrono::duration_cast<std::chrono::seconds>(now).count(), name,
                              package.developerKeyId, package.previousKeyIds};
  Core::KRV::Registry().writeRecord(record);
}

} // namespace

const StoredPackage& PackageStore::get(const std::string& name) const {
  const auto found = m_packages.find(name);
  if (found == m_packages.end())
    throw Error(ErrorCode::PackageNotExist, "The package is not installed: " + name);
  return found->second;
}

void PackageStore::install(const std::string& path, const std::string& source) {
  const Common::Rpm::Reader reader(path);
  const Common::DeveloperIdentity developer = Common::developerIdentity(Common::readPackageCmses(path, true));
  const std::string name = reader.tag(Common::Rpm::Tag::Name);
  StoredPackage package{reader.tag(Common::Rpm::Tag::Version) + "-" + reader.tag(Common::Rpm::Tag::Release), source,
                        developer.keyId, developer.previousKeyIds, developer.subgroup};
  const bool isUpdate = m_packages.contains(name);
  writeEvent(isUpdate ? RegistryRecord::Event::Update : RegistryRecord::Event::Install, name, package);
  m_packages.insert_or_assign(name, std::move(package));
}

void PackageStore::remove(const std::string& name) {
  writeEvent(RegistryRecord::Event::Remove, name, get(name));
  m_packages.erase(name);
}

} // namespace Sandbox
