// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/extraction/extract_tree.h"

#include "tests/support/process/temp_directory.h"

#include <map>
#include <set>
#include <stdexcept>
#include <unordered_set>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace Support {

namespace {

using Common::Rpm::ArchiveEntry;
using Common::Rpm::HardLinkDescription;
using std::filesystem::path;

/// The default permissions of a new file.
std::filesystem::perms permissionsOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return static_cast<std::filesystem::perms>(0666 & ~mask);
}

/// Only this class creates entries below the target, so it knows which paths exist and saves a stat for each small
/// file.
class TreeExtraction {
public:
  TreeExtraction(Common::Rpm::ArchiveReader& archive, const path& target) : m_archive(archive), m_target(target) {
    m_directories.insert(target.native());
  }

  void run() {
    m_archive.extract(m_target, {.directory = [this](const ArchiveEntry& entry) { makeDirectory(entry); },
                                 .regularFile = [this](const ArchiveEntry& entry) { return makeFile(entry); },
                                 .symbolicLink = [this](const ArchiveEntry& entry) { makeSymbolicLink(entry); },
                                 .hardLinks = [this](const HardLinkDescription& group) { makeHardLinks(group); }});
    // Set last, because some directories are not writable; deepest first, because some are not searchable.
    for (auto directory = m_permissions.rbegin(); directory != m_permissions.rend(); ++directory)
      std::filesystem::permissions(directory->first, directory->second);
  }

private:
  /// Creates a directory and its parents.
  void ensureDirectory(const path& directory) {
    if (m_directories.contains(directory.native()))
      return;
    ensureDirectory(directory.parent_path());
    if (m_others.contains(directory.native()))
      throw std::runtime_error("a package writes through the link " + directory.string());
    std::filesystem::create_directory(directory);
    m_directories.insert(directory.native());
  }

  void prepare(const path& entry) {
    ensureDirectory(entry.parent_path());
    if (m_directories.contains(entry.native()) || !m_others.insert(entry.native()).second)
      throw std::runtime_error("a package has two entries " + entry.string());
  }

  void makeDirectory(const ArchiveEntry& entry) {
    ensureDirectory(entry.path);
    m_permissions[entry.path] = entry.permissions;
  }

  std::any makeFile(const ArchiveEntry& entry) {
    prepare(entry.path);
    m_archive.writeContent(entry.path);
    if (entry.permissions != m_permissionsOfNewFiles)
      std::filesystem::permissions(entry.path, entry.permissions);
    return {};
  }

  void makeSymbolicLink(const ArchiveEntry& entry) {
    prepare(entry.path);
    std::filesystem::create_symlink(entry.target, entry.path);
  }

  void makeHardLinks(const HardLinkDescription& group) {
    for (const HardLinkDescription::Link& link : group.links) {
      prepare(link.path);
      std::filesystem::create_hard_link(group.content.path, link.path);
    }
  }

  Common::Rpm::ArchiveReader& m_archive;
  const path m_target;
  const std::filesystem::perms m_permissionsOfNewFiles = permissionsOfNewFiles();
  std::unordered_set<std::string> m_directories;
  std::unordered_set<std::string> m_others;
  std::map<path, std::filesystem::perms> m_permissions;
};

std::string octal(std::filesystem::perms permissions) {
  std::string digits;
  for (auto bits = static_cast<unsigned>(permissions) & 0777; digits.size() < 3; bits >>= 3)
    digits.insert(digits.begin(), static_cast<char>('0' + (bits & 7)));
  return digits;
}

std::string typeName(std::filesystem::file_type type) {
  switch (type) {
  case std::filesystem::file_type::directory:
    return "directory";
  case std::filesystem::file_type::symlink:
    return "link";
  case std::filesystem::file_type::regular:
    return "file";
  default:
    return "special";
  }
}

/// A fingerprint to compare trees of tests; not cryptographic.
std::string fingerprint(const path& file) {
  const std::string content = readFile(file);
  return std::to_string(content.size()) + " " + std::to_string(std::hash<std::string>()(content));
}

} // namespace

void extractTree(Common::Rpm::ArchiveReader& archive, const path& target) {
  TreeExtraction(archive, target).run();
}

std::string listTree(const path& folder) {
  std::set<path> entries;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    entries.insert(entry.path());
  std::map<ino_t, std::string> firstNames;
  std::string lines;
  for (const path& entry : entries) {
    const std::string name = entry.lexically_relative(folder).string();
    const std::filesystem::file_status status = std::filesystem::symlink_status(entry);
    lines += name + " " + typeName(status.type());
    if (status.type() == std::filesystem::file_type::symlink) {
      lines += " " + std::filesystem::read_symlink(entry).string();
    } else {
      lines += " " + octal(status.permissions());
    }
    if (status.type() == std::filesystem::file_type::regular) {
      struct stat information = {};
      if (lstat(entry.c_str(), &information) != 0)
        throw std::runtime_error("no status of " + entry.string());
      lines += " " + fingerprint(entry) + " " + firstNames.emplace(information.st_ino, name).first->second;
    }
    lines += "\n";
  }
  return lines;
}

} // namespace Support
