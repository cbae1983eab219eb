// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "acceptance/placement.h"

#include <optional>
#include <string>
#include <string_view>

namespace Sandbox {

using Acceptance::Change;
using Acceptance::DirectoryMode;

/// All changes of one operation.
struct ChangePlan : Acceptance::FileChanges {
  std::string package = {};
  std::string record = {};                     ///< the registry's line that commits the operation
  std::optional<std::string> entryBefore = {}; ///< the package's entry in the database, if it was installed
  std::optional<std::string> entryAfter = {};  ///< the new entry; none after a removal

  bool operator==(const ChangePlan&) const = default;
};

/// The plan as bytes: texts that end with a zero byte, which no path contains. The last text is a checksum.
std::string toBytes(const ChangePlan& plan);

/// Reads a plan from bytes. Nothing if they are not a complete plan: after a power loss a file may be cut, and any part
/// of it may be zeros.
std::optional<ChangePlan> planFrom(std::string_view bytes);

} // namespace Sandbox
