// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/dbus_error.h"

#include "common/error/error_table.h"

#include <unordered_map>

namespace Common {

namespace {

const std::unordered_map<ErrorCode, std::string_view>& namesByCode() {
  static const auto map = [] {
    std::unordered_map<ErrorCode, std::string_view> entries;
    for (const ErrorTableEntry& entry : errorTable)
      entries.emplace(entry.code, entry.dbusName);
    return entries;
  }();
  return map;
}

const std::unordered_map<std::string_view, ErrorCode>& codesByName() {
  static const auto map = [] {
    std::unordered_map<std::string_view, ErrorCode> entries;
    for (const ErrorTableEntry& entry : errorTable)
      entries.emplace(entry.dbusName, entry.code);
    return entries;
  }();
  return map;
}

} // namespace

DBusErrorInfo fromCode(ErrorCode code) {
  const auto found = namesByCode().find(code);
  const std::string_view name = found != namesByCode().end() ? found->second : namesByCode().at(ErrorCode::Internal);
  // Without a "." rfind returns npos, and npos + 1 is 0: the whole name is copied.
  return {code, std::string(name), std::string(name.substr(name.rfind('.') + 1))};
}

ErrorCode fromDBusName(std::string_view name) {
  const auto found = codesByName().find(name);
  return found != codesByName().end() ? found->second : ErrorCode::Internal;
}

} // namespace Common
