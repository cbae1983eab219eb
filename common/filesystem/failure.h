// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error.h"
#include "driver/log/messages.h"

#include <exception>
#include <string>
#include <utility>

/// Handles failures of the standard library. Only for the sources of this folder.
namespace Common::Filesystem::Failure {

/// The error that every action of this folder throws.
inline Error error(std::string message) {
  return {make_error_code(ErrorCode::Filesystem), std::move(message)};
}

/// For actions: runs `work` and returns its result. Logs a standard exception's what() as an error line, and throws
/// error(message) instead.
template <typename Work>
auto runOrThrow(const std::string& message, Work work) {
  try {
    return work();
  } catch (const std::exception& exception) {
    logLine<Message::ErrorText>(exception.what());
    throw error(message);
  }
}

/// For queries: runs `work` and returns its result. Logs a standard exception's what() as an error line, and returns
/// false.
template <typename Work>
[[nodiscard]] bool runOrReturnFalse(Work work) {
  try {
    return work();
  } catch (const std::exception& exception) {
    logLine<Message::ErrorText>(exception.what());
    return false;
  }
}

} // namespace Common::Filesystem::Failure
