// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/error.h"

#include <utility>

namespace Common {

Error::Error(std::error_code code, std::string message) : std::system_error(code), m_message(std::move(message)) {}

} // namespace Common
