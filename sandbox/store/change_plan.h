// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
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

  bool operator==(const DirectoryMode&) const = default;
};

/// Everything that one operation changes, written down before the first change. Paths are below the root.
struct ChangePlan {
  std::string package;
  std::string record; ///< the line of the registry whose presence means that the operation has happened
  std::vector<std::filesystem::path> newDirectories; ///< each before what is in it
  std::vector<Change> changes;
  std::vector<std::filesystem::path> obsoleteDirectories; ///< to be removed if empty, each after what is in it
  std::vector<DirectoryMode> directoryModes;              ///< to be set last of all, each after what is in it

  bool operator==(const ChangePlan&) const = default;
};

/// The plan as bytes: a sequence of texts, each ended by a zero byte, which no path contains.
std::string toBytes(const ChangePlan& plan);

/// The plan with these bytes. Throws Common::Error, Internal, when they are not those of a whole plan.
ChangePlan planFrom(std::string_view bytes);

} // namespace Sandbox
