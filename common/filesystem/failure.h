// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error.h"
#include "driver/log/log_message.h"

#include <exception>
#include <string>
#include <utility>

/// What this folder does when the standard library fails. For its own sources only.
namespace Common::Filesystem::Failure {

/// The error that every action of this folder throws.
inline Error error(std::string message) {
  return {make_error_code(ErrorCode::Filesystem), std::move(message)};
}

/// An action: does `work` and returns its result. A standard exception is logged as an error line, the library's own
/// description, and becomes the Common::Error with `message`.
template <typename Work>
auto throwing(const std::string& message, Work work) {
  try {
    return work();
  } catch (const std::exception& exception) {
    LogMessage(LogLevel::Error) << exception.what();
    throw error(message);
  }
}

/// A query: returns what `work` answers. A standard exception is logged as an error line and answers false.
template <typename Work>
bool answering(Work work) {
  try {
    return work();
  } catch (const std::exception& exception) {
    LogMessage(LogLevel::Error) << exception.what();
    return false;
  }
}

} // namespace Common::Filesystem::Failure
