// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error_code.h"

#include <string>
#include <string_view>

namespace Common {

/// An error as the service sends it on the bus.
struct DBusErrorInfo {
  ErrorCode code;
  std::string name;      ///< the whole D-Bus error name
  std::string shortName; ///< the part of the name after its last "."
};

/// Describes `code`. An unassigned number gets the names of Internal and keeps its own value in `code`.
DBusErrorInfo fromCode(ErrorCode code);

/// The code with the D-Bus error name `name`, an exact, case-sensitive match; Internal for every other name.
ErrorCode fromDBusName(std::string_view name);

} // namespace Common
