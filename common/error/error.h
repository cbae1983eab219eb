// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error_code.h"

#include <string>
#include <system_error>

namespace Common {

/// The exception of the shared library code. what() is the thrower's message only; code().message() is the general
/// message of the code.
class Error final : public std::system_error {
public:
  Error(std::error_code code, std::string message);

  const char* what() const noexcept override { return m_message.c_str(); }

private:
  std::string m_message;
};

} // namespace Common
