// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Core::KRV {

/// One event in the life of a package, tied to the developer key with which the package was signed.
struct RegistryRecord {
  enum class Event : std::int32_t {
    Install = 0,
    Update = 1,
    Remove = 2,
  };

  Event event;
  std::int64_t timestamp; ///< as the producer of the record wrote it
  std::string packageId;
  std::string keyId;
  std::vector<std::string> prevKeyIds; ///< earlier keys of the same developer, oldest first

  bool operator==(const RegistryRecord&) const = default;
};

/// The line of a record, without a line end. Values are written as they are: one that holds a space or "->" cannot be
/// read back unchanged. Throws std::out_of_range when `event` is none of the three.
std::string toString(const RegistryRecord& record);

/// Reads the line of a record. Empty for a line that is none, after one warning line with the reason. An unknown key
/// is worth a warning line and nothing more. Never throws for bad input.
std::optional<RegistryRecord> parseRecord(std::string_view line);

/// As above, into a record whose memory is used again: for many lines in a row. False for a line that is none; what
/// `record` holds then is of no use.
bool parseRecord(std::string_view line, RegistryRecord& record);

} // namespace Core::KRV
