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

/// What happens to one file or link of the root.
struct Change {
  enum class Kind { Add, Replace, Delete };

  Kind kind;
  std::size_t number; ///< its name among the new or among the old files of the transaction
  std::filesystem::path path;
  std::uint64_t oldInode = 0; ///< of the entry that is replaced or deleted: no other one may be
  std::uint64_t newInode = 0; ///< of the entry that is put there

  bool operator==(const Change&) const = default;
};

struct DirectoryMode {
  std::filesystem::path path;
  std::filesystem::perms permissions;
  std::filesystem::perms earlier = std::filesystem::perms::owner_all; ///< those it had, or was made with

  bool operator==(const DirectoryMode&) const = default;
};

/// Everything that one operation changes, written down before the first change. Paths are below the root.
struct ChangePlan {
  std::string package;
  std::string record; ///< the line of the registry whose presence means that the operation has happened
  std::optional<std::string> entryBefore;            ///< the package's entry in the database, if it was installed
  std::optional<std::string> entryAfter;             ///< that which takes its place
  std::vector<std::filesystem::path> newDirectories; ///< each before what is in it
  std::vector<Change> changes;
  std::vector<std::filesystem::path> obsoleteDirectories; ///< to be removed if empty, each after what is in it
  std::vector<DirectoryMode> directoryModes;              ///< to be set after all changes, each after what is in it

  bool operator==(const ChangePlan&) const = default;
};

/// The plan as bytes: a sequence of texts, each ended by a zero byte, which no path contains. The last one is a
/// checksum.
std::string toBytes(const ChangePlan& plan);

/// The plan with these bytes. Nothing when they are not those of a whole plan: after a power loss a file may be shorter
/// than it was written, and any part of it may be zeros.
std::optional<ChangePlan> planFrom(std::string_view bytes);

} // namespace Sandbox
