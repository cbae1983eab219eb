// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "sandbox/handle_call.h"

#include "common/error/dbus_error.h"
#include "common/error/error.h"
#include "common/text/utf8.h"
#include "driver/log/log_message.h"

#include <sdbus-c++/Error.h>

#include <exception>
#include <string_view>

namespace Sandbox {

namespace {

using Common::ErrorCode;

/// A package determines the length of the names in a reason, and the bus disconnects a client that sends too much.
constexpr std::size_t longestReason = 4096;

[[noreturn]] void refuse(const std::string& call, ErrorCode code, std::string_view reason) {
  reason = reason.substr(0, longestReason);
  const Common::DBusErrorInfo info = Common::fromCode(code);
  LogMessage(LogLevel::Error) << call << ": " << info.shortName << ": " << reason;
  throw sdbus::Error(sdbus::Error::Name(info.name), Common::asUtf8(reason));
}

ErrorCode codeOf(const Common::Error& error) {
  const bool isOurs = error.code().category() == Common::errorCategory();
  return isOurs ? static_cast<ErrorCode>(error.code().value()) : ErrorCode::Internal;
}

} // namespace

void handleCall(const std::string& call, const std::function<void()>& work) {
  try {
    work();
  } catch (const Common::Error& error) {
    refuse(call, codeOf(error), error.what());
  } catch (const std::exception& error) {
    refuse(call, ErrorCode::Internal, error.what());
  }
  LogMessage(LogLevel::Info) << call;
}

} // namespace Sandbox
