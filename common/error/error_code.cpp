// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error_code.h"

#include "common/error/error_table.h"

#include <string>
#include <unordered_map>

namespace Common {

namespace {

const std::unordered_map<int, std::string_view>& messages() {
  static const auto map = [] {
    std::unordered_map<int, std::string_view> entries;
    for (const ErrorTableEntry& entry : errorTable)
      entries.emplace(static_cast<int>(entry.code), entry.message);
    return entries;
  }();
  return map;
}

class ErrorCodeCategoryImpl final : public std::error_category {
public:
  ~ErrorCodeCategoryImpl() override = default;

  const char* name() const noexcept override { return "Common::ErrorCategory"; }

  std::string message(int value) const override {
    const auto found = messages().find(value);
    return std::string(found != messages().end() ? found->second
                                                 : messages().at(static_cast<int>(ErrorCode::Internal)));
  }
};

} // namespace

const std::error_category& errorCategory() noexcept {
  static const ErrorCodeCategoryImpl category;
  return category;
}

std::error_code make_error_code(ErrorCode code) noexcept {
  return {static_cast<int>(code), errorCategory()};
}

} // namespace Common
