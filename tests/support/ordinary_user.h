// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include <sys/types.h>

namespace Support {

/// While it lives this process acts as an ordinary user to whom all of `folder` belongs, so that permission bits
/// count even when the tests run as root. For an ordinary user it does nothing.
class OrdinaryUser {
public:
  explicit OrdinaryUser(const std::filesystem::path& folder);
  ~OrdinaryUser();
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
  uid_t m_before;
};

} // namespace Support
