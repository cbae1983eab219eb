// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tests/support/process/ordinary_user.h"

#include <cerrno>
#include <exception>
#include <string>
#include <system_error>
#include <utility>

#include <sys/prctl.h>
#include <unistd.h>

namespace Support {

namespace {

constexpr uid_t nobody = 65534;

void giveAway(const std::filesystem::path& path) {
  if (lchown(path.c_str(), nobody, static_cast<gid_t>(-1)) != 0)
    throw std::system_error(errno, std::generic_category(), path.string());
}

} // namespace

OrdinaryUser::OrdinaryUser(const std::filesystem::path& folder) : m_before(geteuid()) {
  if (m_before != 0)
    return;
  giveAway(folder);
  for (const std::filesystem::directory_entry& entry : std::filesystem::recursive_directory_iterator(folder))
    giveAway(entry.path());
  if (seteuid(nobody) != 0)
    throw std::system_error(errno, std::generic_category(), "seteuid");
}

OrdinaryUser::~OrdinaryUser() {
  if (m_before != 0)
    return;
  // If seteuid() fails, the other tests would run as the wrong user. The change of the user has cleared the dumpable
  // flag, without which the leak checker cannot read this process.
  if (seteuid(m_before) != 0 || prctl(PR_SET_DUMPABLE, 1) != 0)
    std::terminate();
}

ScopedPermissions::ScopedPermissions(std::filesystem::path path, std::filesystem::perms permissions)
    : m_path(std::move(path)), m_before(std::filesystem::status(m_path).permissions()) {
  std::filesystem::permissions(m_path, permissions);
}

ScopedPermissions::~ScopedPermissions() {
  std::error_code ignored;
  std::filesystem::permissions(m_path, m_before, ignored);
}

} // namespace Support
