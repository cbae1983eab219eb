// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Core::KRV {

/// One event of a package (installed, updated, removed), with the developer key that signed the package.
struct RegistryRecord {
  enum class Event : std::int32_t {
    Install = 0,
    Update = 1,
    Remove = 2,
  };

  Event event;
  std::int64_t timestamp; ///< written by the producer of the record; not interpreted
  std::string packageId;
  std::string keyId;
  std::vector<std::string> prevKeyIds; ///< earlier keys of the same developer, oldest first

  bool operator==(const RegistryRecord&) const = default;
};

/// The line of a record, without a line end. Values are not escaped: a value with a space or "->" does not survive
/// reading back. Throws std::out_of_range if `event` is not one of the three.
std::string toString(const RegistryRecord& record);

/// Parses the line of a record. Returns nothing, after one warning line with the reason, if the line is not a record.
/// An unknown key only gives a warning line. Never throws for bad input.
std::optional<RegistryRecord> parseRecord(std::string_view line);

/// The same into an existing record, which saves allocations for many lines. Returns false if the line is not a record;
/// the content of `record` is unspecified then.
bool parseRecord(std::string_view line, RegistryRecord& record);

} // namespace Core::KRV
