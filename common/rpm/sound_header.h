// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"

#include <cstdint>
#include <map>
#include <utility>

namespace Common::Rpm {

/// Decides whether librpm may compute something from several values of one header. librpm combines them without
/// checking their types and, partly, their number: with a text in place of a list it follows or frees invalid pointers.
/// This class checks only the values that librpm combines for the request, each check once per header, and omits the
/// checks that librpm makes itself.
class SoundHeader {
public:
  using Check = bool (*)(Header);

  explicit SoundHeader(HeaderHandle header) : m_header(std::move(header)) {}

  /// Whether librpm computes this tag from other tags or from its own value.
  static bool isComputed(std::int32_t tag);

  /// Whether librpm may compute `tag`. False for tags that are not computed.
  bool mayCompute(std::int32_t tag);

  /// Whether rpmfilesNew() may be called.
  bool hasFiles();

  /// Whether rpmdsNew() may be called with `tag`. False if `tag` is not a kind of dependency.
  bool hasDependencies(std::int32_t tag);

  /// Whether librpm may add the package itself to the list of provides, as it does to a header without an immutable
  /// region. It compares the list with the package unless the list has no versions.
  bool mayCompleteProvides();

private:
  bool passes(Check check);

  HeaderHandle m_header;
  std::map<Check, bool> m_passed;
};

} // namespace Common::Rpm
