// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include <sys/types.h>

namespace Support {

/// While it lives, this process runs as an ordinary user who owns `folder`, so that permission bits also count if the
/// tests run as root. Does nothing if they run as an ordinary user.
class OrdinaryUser {
public:
  explicit OrdinaryUser(const std::filesystem::path& folder);
  ~OrdinaryUser();
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
  uid_t m_before;
};

/// Changes the permission bits of a file or folder and restores them at the end of its scope, so that the folder can be
/// removed.
class ScopedPermissions {
public:
  ScopedPermissions(std::filesystem::path path, std::filesystem::perms permissions);
  ~ScopedPermissions();
  ScopedPermissions(const ScopedPermissions&) = delete;
  ScopedPermissions& operator=(const ScopedPermissions&) = delete;

private:
  std::filesystem::path m_path;
  std::filesystem::perms m_before;
};

} // namespace Support
