// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Writing JSON values as text.
namespace Json {

/// A string. Bytes that are no UTF-8 are replaced by U+FFFD, since JSON cannot hold them.
std::string text(std::string_view value);

/// Of values that are JSON already.
std::string array(const std::vector<std::string>& values);
std::string object(const std::vector<std::pair<std::string, std::string>>& members);

} // namespace Json
