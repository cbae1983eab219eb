// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace Common {

/// The developer of a package. The texts come from the signature library: they are compared, never parsed.
struct DeveloperIdentity {
  std::string keyId;
  std::string subgroup;
  std::vector<std::string> previousKeyIds; ///< key ids that the developer used before, in the library's order
};

/// Whether `keyId` is the key id `own` of a developer or one of the `earlier` ones.
[[nodiscard]] bool isOwnOrEarlierKey(const std::string& keyId, const std::string& own,
                                     const std::vector<std::string>& earlier);

} // namespace Common
