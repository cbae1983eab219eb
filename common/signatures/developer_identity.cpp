// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/signatures/developer_identity.h"

#include <algorithm>

namespace Common {

bool isOwnOrEarlierKey(const std::string& keyId, const std::string& own, const std::vector<std::string>& earlier) {
  return keyId == own || std::ranges::find(earlier, keyId) != earlier.end();
}

} // namespace Common
