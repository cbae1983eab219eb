// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/store/transaction.h"

#include "common/error/error.h"
#include "driver/log/log_message.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Sandbox {

namespace fs = std::filesystem;

namespace {

using Common::Error;
using Common::ErrorCode;
using Common::Posix::FileDescriptor;

constexpr const char* folderName = "transaction";
constexpr const char* asideName = "unreadable-transaction";
constexpr const char* newFiles = "new";
constexpr const char* oldFiles = "old";
constexpr const char* journal = "journal";
constexpr const char* registry = "registry";

/// Call it before anything else can change errno.
Error failure(const std::string& message, const fs::path& path) {
  const std::error_code reason(errno, std::generic_category());
  LogMessage(LogLevel::Error) << reason.message();
  return {ErrorCode::Filesystem, message + path.string()};
}

Error conflict(const fs::path& path) {
  return {ErrorCode::FileConflict, "Something else has come into the place of: /" + path.string()};
}

void writeFile(const Directory& directory, const std::string& name, const std::string& bytes) {
  FileDescriptor file = directory.createFile(name);
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count = write(file.get(), bytes.data() + done, bytes.size() - done);
    if (count < 0)
      throw failure("Couldn't write file: ", directory.path() / name);
    done += static_cast<std::size_t>(count);
  }
  if (file.close() != 0)
    throw failure("Couldn't write file: ", directory.path() / name);
}

std::optional<std::string> readFile(const Directory& directory, const std::string& name) {
  const std::optional<FileDescriptor> file = directory.openFile(name);
  if (!file)
    return std::nullopt;
  std::string bytes;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = read(file->get(), buffer.data(), buffer.size());
    if (count < 0)
      throw failure("Couldn't read file: ", directory.path() / name);
    if (count == 0)
      return bytes;
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

bool isInode(const std::optional<Entry>& entry, std::uint64_t inode) {
  return entry && entry->inode == inode;
}

/// After a power loss the folder may exist without them.
void makeFolders(const Directory& folder) {
  for (const char* files : {newFiles, oldFiles})
    folder.makeDirectory(files);
}

Directory filesOf(const Change& change, const Directory& folder) {
  return folder.open(change.kind == Change::Kind::Delete ? oldFiles : newFiles);
}

/// A replaced file is never missing in between. Returns false if an entry is not the one of the plan; undoing the
/// change puts it back.
bool apply(const Change& change, const Directory& root, const Directory& folder) {
  const std::optional<Place> place = findPlace(root, change.path);
  const Directory files = filesOf(change, folder);
  const std::string number = std::to_string(change.number);
  if (!place)
    return false;
  switch (change.kind) {
  case Change::Kind::Add:
    return files.move(number, place->directory, place->name);
  case Change::Kind::Replace:
    return files.exchange(number, place->directory, place->name) && isInode(files.entry(number), change.oldInode);
  case Change::Kind::Delete:
    return place->directory.move(place->name, files, number) && isInode(files.entry(number), change.oldInode);
  }
  return false;
}

/// Whether a change has not been made: the new file is still in the folder, or the deleted file is not there yet.
bool isPending(const Change& change, const Directory& root, const Directory& folder) {
  const std::optional<Entry> kept = filesOf(change, folder).entry(std::to_string(change.number));
  if (change.kind != Change::Kind::Delete)
    return isInode(kept, change.newInode);
  const std::optional<Place> place = findPlace(root, change.path);
  return !kept && place && isInode(place->entry(), change.oldInode);
}

/// Undoes an added file. A file of another process in its place stays.
void takeBack(const Change& change, const Place& place, const Directory& files) {
  const std::string number = std::to_string(change.number);
  if (files.entry(number) || !isInode(place.entry(), change.newInode))
    return;
  place.directory.move(place.name, files, number);
  if (const auto taken = files.entry(number); taken && taken->inode != change.newInode)
    files.move(number, place.directory, place.name);
}

/// Puts a replaced file back in the place of the new one. Returns false if the new one is no longer there.
bool exchangeBack(const Change& change, const Place& place, const Directory& files) {
  const std::string number = std::to_string(change.number);
  const std::optional<Entry> there = place.entry();
  if (!there)
    return files.move(number, place.directory, place.name);
  if (there->inode != change.newInode || !files.exchange(number, place.directory, place.name))
    return false;
  if (isInode(files.entry(number), change.newInode))
    return true;
  files.exchange(number, place.directory, place.name);
  return false;
}

/// Undoes a change if it was made. Returns false if the root does not have its old entry back.
bool undo(const Change& change, const Directory& root, const Directory& folder) {
  const std::optional<Place> place = findPlace(root, change.path);
  const Directory files = filesOf(change, folder);
  const std::string number = std::to_string(change.number);
  const std::optional<Entry> kept = files.entry(number);
  switch (change.kind) {
  case Change::Kind::Add:
    if (place)
      takeBack(change, *place, files);
    return true;
  case Change::Kind::Replace:
    return !kept || kept->inode == change.newInode || (place && exchangeBack(change, *place, files));
  case Change::Kind::Delete:
    return !kept || (place && files.move(number, place->directory, place->name));
  }
  return true;
}

/// Resets only a mode that the plan has set. A directory of another user keeps its mode.
void resetMode(const DirectoryMode& mode, const Directory& root) {
  const std::optional<Directory> directory = root.find(mode.path);
  if (!directory)
    return;
  const Entry found = directory->status();
  if (found.owner == geteuid() && found.permissions == mode.permissions)
    directory->setPermissions(mode.earlier);
}

/// Removes a directory that the store has created: until the end it has mode 0700. Any other belongs to somebody else.
void unmake(const fs::path& path, const Directory& root) {
  const std::optional<Place> place = findPlace(root, path);
  const std::optional<Entry> entry = place ? place->entry() : std::nullopt;
  if (entry && entry->owner == geteuid() && entry->permissions == fs::perms::owner_all)
    place->directory.removeIfEmpty(place->name);
}

} // namespace

Transaction::Transaction(const Directory& root, const Directory& home, const Directory& events)
    : m_root(root), m_home(home), m_events(events),
      m_disk(openat(home.descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (!m_disk)
    throw failure("Couldn't open directory: ", home.path());
}

Directory Transaction::folder() const {
  return m_home.open(folderName);
}

bool Transaction::isUnderWay() const {
  return m_home.entry(folderName).has_value();
}

void Transaction::begin() const {
  makeFolders(m_home.openPrivate(folderName));
}

FileDescriptor Transaction::copyPackage(const OpenedPackage& package) const {
  FileDescriptor copy = folder().createFile("package.rpm");
  package.copyTo(copy);
  return copy;
}

void Transaction::stage(Common::Rpm::ArchiveReader& package) const {
  using Common::Rpm::ArchiveEntry;
  const Directory files = folder().open(newFiles);
  const auto nameOf = [](int index) { return std::to_string(index); };
  package.extract(
      "", {.directory = [](const ArchiveEntry&) {},
           .regularFile =
               [&](const ArchiveEntry& entry) {
                 const FileDescriptor file = files.createFile(nameOf(entry.index));
                 package.writeContent(pathOf(file));
                 if (fchmod(file.get(), static_cast<mode_t>(entry.permissions)) != 0)
                   throw failure("Couldn't set permissions: ", files.path() / nameOf(entry.index));
                 return std::any();
               },
           .symbolicLink = [&](const ArchiveEntry& entry) { files.createSymlink(entry.target, nameOf(entry.index)); },
           .hardLinks =
               [&](const Common::Rpm::HardLinkDescription& group) {
                 for (const auto& link : group.links)
                   files.createHardLink(nameOf(group.content.index), files, nameOf(link.index));
               }});
}

void Transaction::carryOut(ChangePlan plan, PackageDatabase& database) const {
  const Directory folder = this->folder();
  const Directory files = folder.open(newFiles);
  for (Change& change : plan.changes) {
    if (const auto staged = files.entry(std::to_string(change.number)))
      change.newInode = staged->inode;
  }
  keepRegistry(folder);
  writeFile(folder, journal, toBytes(plan));
  sync();

  makeDirectories(plan);
  for (const Change& change : plan.changes) {
    if (!apply(change, m_root, folder))
      throw conflict(change.path);
  }
  database.replace(plan.package, plan.entryAfter);
  setModes(plan);
}

/// syncfs() syncs the whole file system of its descriptor.
void Transaction::sync() const {
  if (syncfs(m_disk.get()) != 0)
    throw failure("Couldn't sync the file system of: ", m_home.path());
}

void Transaction::makeDirectories(const ChangePlan& plan) const {
  for (const fs::path& path : plan.newDirectories) {
    const std::optional<Place> place = findPlace(m_root, path);
    if (!place || !place->directory.makeDirectory(place->name))
      throw conflict(path);
  }
}

void Transaction::setModes(const ChangePlan& plan) const {
  for (const DirectoryMode& mode : plan.directoryModes) {
    if (const std::optional<Directory> found = m_root.find(mode.path))
      found->setPermissions(mode.permissions);
  }
}

/// Writing the registry replaces the file, so a second name keeps the old one.
void Transaction::keepRegistry(const Directory& folder) const {
  if (m_events.entry(registry))
    m_events.createHardLink(registry, folder, registry);
  else
    folder.createFile(registry);
}

/// Needs no lock: only this store writes the registry, and readers find the old or the new one.
void Transaction::putBackRegistry(const Directory& folder) const {
  if (folder.entry(registry))
    folder.rename(registry, m_events, registry);
}

std::optional<ChangePlan> Transaction::plan() const {
  const std::optional<std::string> bytes = readFile(folder(), journal);
  return bytes ? planFrom(*bytes) : std::nullopt;
}

/// Removes the record first. If a power loss brings the record back, redo() repeats everything.
void Transaction::undo(PackageDatabase& database) const {
  if (const std::optional<ChangePlan> plan = this->plan()) {
    const Directory folder = this->folder();
    makeFolders(folder);
    putBackRegistry(folder);
    database.replace(plan->package, plan->entryBefore);
    std::for_each(plan->directoryModes.rbegin(), plan->directoryModes.rend(),
                  [&](const DirectoryMode& mode) { resetMode(mode, m_root); });
    std::for_each(plan->changes.rbegin(), plan->changes.rend(), [&](const Change& change) {
      if (!Sandbox::undo(change, m_root, folder))
        LogMessage(LogLevel::Warning) << "Couldn't put back what the transaction has removed: /"
                                      << change.path.string();
    });
    std::for_each(plan->newDirectories.rbegin(), plan->newDirectories.rend(),
                  [&](const fs::path& path) { unmake(path, m_root); });
    sync();
  }
  discard();
}

void Transaction::redo(PackageDatabase& database) const {
  const std::optional<ChangePlan> plan = this->plan();
  if (!plan)
    return;
  const Directory folder = this->folder();
  makeFolders(folder);
  for (const fs::path& path : plan->newDirectories) {
    if (const std::optional<Place> place = findPlace(m_root, path))
      place->directory.makeDirectory(place->name);
  }
  for (const Change& change : plan->changes) {
    if (!isPending(change, m_root, folder) || apply(change, m_root, folder))
      continue;
    Sandbox::undo(change, m_root, folder);
    LogMessage(LogLevel::Warning) << "Couldn't do again what the transaction has changed: /" << change.path.string();
  }
  database.replace(plan->package, plan->entryAfter);
  setModes(*plan);
  sync();
}

void Transaction::finish() const {
  if (const std::optional<ChangePlan> plan = this->plan()) {
    for (const fs::path& path : plan->obsoleteDirectories) {
      if (const std::optional<Place> place = findPlace(m_root, path))
        place->directory.removeIfEmpty(place->name);
    }
  }
  discard();
}

void Transaction::setAside() const {
  m_home.remove(asideName);
  m_home.rename(folderName, m_home, asideName);
  LogMessage(LogLevel::Error) << "The interrupted transaction cannot be repaired and is kept in: "
                              << (m_home.path() / asideName).string();
}

/// Removes the journal first: a folder without a journal means that nothing was changed.
void Transaction::discard() const {
  folder().remove(journal);
  m_home.remove(folderName);
}

} // namespace Sandbox
