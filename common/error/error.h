// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error_code.h"

#include <string>
#include <system_error>

namespace Common {

/// The exception of the shared library code. what() is the thrower's message alone; the general message of the code
/// stays reachable through code().message().
class Error final : public std::system_error {
public:
  Error(std::error_code code, std::string message);

  const char* what() const noexcept override { return m_message.c_str(); }

private:
  std::string m_message;
};

} // namespace Common
