// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/package_database.h"

#include "common/error/error.h"
#include "common/filesystem/entry.h"
#include "common/rpm/transaction.h"
#include "sandbox/store/header_blob.h"
#include "sandbox/store/rpm_database.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace Sandbox {

namespace {

using Common::Error;
using Common::ErrorCode;
using Common::Rpm::Reader;
using Common::Rpm::RpmTransaction;

/// If the database cannot be opened or read, librpm ends the iteration normally, and the packages that were not found
/// would count as not installed.
void forEach(const RpmTransaction& transaction, const std::filesystem::path& folder,
             const std::function<void(const Reader&)>& visitor) {
  const int errors = reportedErrors();
  RpmTransaction::forEachInstalled(transaction.installedPackages(), visitor);
  if (reportedErrors() != errors)
    throw Error(ErrorCode::Internal, "Couldn't read the RPM database: " + folder.string());
}

} // namespace

PackageDatabase::PackageDatabase(std::filesystem::path folder) : m_folder(std::move(folder)) {
  Common::Filesystem::createDirectories(m_folder);
  setDatabaseFolder(m_folder);
  // A power loss at the very first start leaves an empty file, which librpm cannot open for reading. A failure shows
  // when the database is read.
  createDatabase();
}

std::vector<Reader> PackageDatabase::packages() const {
  const RpmTransaction transaction(RPMTXN_READ);
  std::vector<Reader> found;
  forEach(transaction, m_folder, [&](const Reader& entry) { found.push_back(importHeader(exportHeader(entry))); });
  return found;
}

std::vector<std::string> PackageDatabase::entriesOf(const std::string& name) const {
  std::vector<std::string> found;
  for (const Reader& entry : packages()) {
    if (entry.tagOr(Common::Rpm::Tag::Name, "") == name)
      found.push_back(exportHeader(entry));
  }
  return found;
}

void PackageDatabase::replace(const std::string& name, const std::optional<std::string>& entry) {
  {
    RpmTransaction transaction(RPMTXN_WRITE);
    transaction.addFlags(databaseOnly);
    bool isThere = false;
    forEach(transaction, m_folder, [&](const Reader& found) {
      if (found.tagOr(Common::Rpm::Tag::Name, "") != name)
        return;
      if (!isThere && entry && exportHeader(found) == *entry)
        isThere = true;
      else
        transaction.erase(found);
    });
    if (entry && !isThere)
      addToDatabase(transaction, importHeader(*entry));
    transaction.run();
  }
  // librpm reports problems of a run only as the number that run() ignores.
  const std::vector<std::string> expected = entry ? std::vector{*entry} : std::vector<std::string>{};
  if (entriesOf(name) != expected)
    throw Error(ErrorCode::Internal, "Couldn't update the RPM database: " + m_folder.string());
}

} // namespace Sandbox
