// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"

#include <cstdint>
#include <map>
#include <utility>

namespace Common::Rpm {

/// Whether librpm may be asked for something that it computes from several values of one header. It combines them
/// without a look at their types, and partly at their number: a text where a list belongs makes it follow, or free,
/// invalid pointers. The class checks only the values that librpm combines for the request, once for each header, and
/// leaves out the checks that librpm makes itself.
class SoundHeader {
public:
  using Check = bool (*)(Header);

  explicit SoundHeader(HeaderHandle header) : m_header(std::move(header)) {}

  /// Whether librpm computes this tag, from others or from its own value.
  static bool isComputed(std::int32_t tag);

  /// For a computed tag.
  bool mayCompute(std::int32_t tag);

  /// For rpmfilesNew().
  bool hasFiles();

  /// For rpmdsNew() with `tag`, which may be any.
  bool hasDependencies(std::int32_t tag);

private:
  bool passes(Check check);

  HeaderHandle m_header;
  std::map<Check, bool> m_passed;
};

} // namespace Common::Rpm
