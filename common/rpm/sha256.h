// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace Common::Rpm {

/// Computes a SHA-256 digest with librpm.
class Sha256 {
public:
  Sha256();

  void add(std::string_view bytes);

  /// The digest of everything that was added, as 64 lower-case hexadecimal digits. Further bytes can be added.
  std::string digits() const;

private:
  std::shared_ptr<void> m_digest;
};

} // namespace Common::Rpm
