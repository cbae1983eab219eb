// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Sandbox {

/// The change of one file or symlink of the root.
struct Change {
  enum class Kind { Add, Replace, Delete };

  Kind kind;
  std::size_t number; ///< its name in the folder of new or old files
  std::filesystem::path path;
  std::uint64_t oldInode = 0; ///< of the entry to replace or delete
  std::uint64_t newInode = 0; ///< of the new entry

  bool operator==(const Change&) const = default;
};

struct DirectoryMode {
  std::filesystem::path path;
  std::filesystem::perms permissions;
  std::filesystem::perms earlier = std::filesystem::perms::owner_all; ///< before the change, or at its creation

  bool operator==(const DirectoryMode&) const = default;
};

/// All changes of one operation. Paths are below the root.
struct ChangePlan {
  std::string package;
  std::string record;                                ///< the registry's line that commits the operation
  std::optional<std::string> entryBefore;            ///< the package's entry in the database, if it was installed
  std::optional<std::string> entryAfter;             ///< the new entry; none after a removal
  std::vector<std::filesystem::path> newDirectories; ///< parents first
  std::vector<Change> changes;
  std::vector<std::filesystem::path> obsoleteDirectories; ///< removed if empty, children first
  std::vector<DirectoryMode> directoryModes;              ///< set after all changes, children first

  bool operator==(const ChangePlan&) const = default;
};

/// The plan as bytes: texts that end with a zero byte, which no path contains. The last text is a checksum.
std::string toBytes(const ChangePlan& plan);

/// Reads a plan from bytes. Nothing if they are not a complete plan: after a power loss a file may be cut, and any part
/// of it may be zeros.
std::optional<ChangePlan> planFrom(std::string_view bytes);

} // namespace Sandbox
