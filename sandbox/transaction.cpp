// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/transaction.h"

#include "common/error/error.h"
#include "common/filesystem/copy.h"
#include "common/filesystem/entry.h"
#include "sandbox/entries.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <utility>

namespace Sandbox {

namespace fs = std::filesystem;
namespace Filesystem = Common::Filesystem;

namespace {

using Common::Error;
using Common::ErrorCode;

void writeFile(const fs::path& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file)
    throw Error(ErrorCode::Filesystem, "Couldn't write file: " + path.string());
}

std::optional<std::string> readFile(const fs::path& path) {
  if (!isPresent(path))
    return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf(); // which stops at an error that an iterator over the file would throw
  if (!bytes || file.bad() || !file.is_open())
    throw Error(ErrorCode::Filesystem, "Couldn't read file: " + path.string());
  return bytes.str();
}

} // namespace

Transaction::Transaction(fs::path root, fs::path folder) : m_root(std::move(root)), m_folder(std::move(folder)) {}

bool Transaction::isUnderWay() const {
  return isPresent(m_folder);
}

void Transaction::begin() const {
  Filesystem::createDirectories(m_folder / "new");
  Filesystem::createDirectories(m_folder / "old");
}

fs::path Transaction::adopt(const fs::path& package) const {
  fs::path copy = m_folder / "package.rpm";
  Filesystem::copyFile(package, copy);
  return copy;
}

void Transaction::stage(Common::Rpm::ArchiveReader& package) const {
  using Common::Rpm::ArchiveEntry;
  const auto staged = [this](int index) { return newFile(static_cast<std::size_t>(index)); };
  package.extract(
      "",
      {.directory = [](const ArchiveEntry&) {},
       .regularFile =
           [&](const ArchiveEntry& entry) {
             const fs::path file = staged(entry.index);
             package.writeContent(file);
             Filesystem::setPermissions(file, entry.permissions);
             return std::any();
           },
       .symbolicLink = [&](const ArchiveEntry& entry) { Filesystem::createSymlink(entry.target, staged(entry.index)); },
       .hardLinks =
           [&](const Common::Rpm::HardLinkDescription& group) {
             for (const auto& link : group.links)
               Filesystem::createHardlink(staged(group.content.index), staged(link.index));
           }});
}

void Transaction::carryOut(const ChangePlan& plan, PackageDatabase& database, const std::optional<std::string>& earlier,
                           const std::optional<std::string>& entry) const {
  if (earlier)
    writeFile(header(), *earlier);
  const fs::path unfinished = m_folder / "journal.next";
  writeFile(unfinished, toBytes(plan));
  Filesystem::move(unfinished, journal());

  for (const fs::path& directory : plan.newDirectories)
    Filesystem::createDirectories(m_root / directory);
  for (const Change& change : plan.changes)
    apply(change);
  database.replace(plan.package, entry);
}

void Transaction::apply(const Change& change) const {
  const fs::path path = m_root / change.path;
  // There is no moment in which a file that is replaced is missing.
  if (change.kind == Change::Kind::Replace)
    Filesystem::createHardlink(path, oldFile(change.number));
  if (change.kind == Change::Kind::Delete)
    Filesystem::move(path, oldFile(change.number));
  else
    Filesystem::move(newFile(change.number), path);
}

std::optional<ChangePlan> Transaction::plan() const {
  const std::optional<std::string> bytes = readFile(journal());
  return bytes ? std::optional(planFrom(*bytes)) : std::nullopt;
}

void Transaction::undo(PackageDatabase& database) const {
  if (const std::optional<ChangePlan> plan = this->plan()) {
    database.replace(plan->package, readFile(header()));
    std::for_each(plan->changes.rbegin(), plan->changes.rend(), [this](const Change& change) { undo(change); });
    std::for_each(plan->newDirectories.rbegin(), plan->newDirectories.rend(),
                  [this](const fs::path& directory) { removeIfEmpty(m_root / directory); });
  }
  discard();
}

void Transaction::undo(const Change& change) const {
  const fs::path path = m_root / change.path;
  if (change.kind != Change::Kind::Add) {
    // Until the new file came, both are names of the old one; to move it then does nothing, and nothing has to be done.
    if (isPresent(oldFile(change.number)))
      Filesystem::move(oldFile(change.number), path);
  } else if (!isPresent(newFile(change.number)) && isPresent(path)) {
    Filesystem::move(path, newFile(change.number));
  }
}

void Transaction::finish() const {
  if (const std::optional<ChangePlan> plan = this->plan()) {
    for (const fs::path& directory : plan->obsoleteDirectories) {
      if (isReachedDirectly(m_root, directory))
        removeIfEmpty(m_root / directory);
    }
    for (const DirectoryMode& directory : plan->directoryModes) {
      const fs::path path = m_root / directory.path;
      if (isReachedDirectly(m_root, directory.path) && typeOf(path) == fs::file_type::directory)
        Filesystem::setPermissions(path, directory.permissions);
    }
  }
  discard();
}

/// The journal goes first: what is left without it has changed nothing.
void Transaction::discard() const {
  Filesystem::remove(journal());
  Filesystem::remove(m_folder);
}

} // namespace Sandbox
