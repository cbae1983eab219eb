// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/error/dbus_error.h"

#include "fuzz/support.h"

#include <algorithm>
#include <cstring>

namespace {

using Common::DBusErrorInfo;
using Common::ErrorCode;

void checkDescription(ErrorCode code) {
  const DBusErrorInfo info = fromCode(code);
  Fuzz::require(info.code == code, "a description has the number of its code");
  Fuzz::require(info.name == "velta.KRV.Error." + info.shortName, "a name is the prefix and the short name");
  const ErrorCode named = Common::fromDBusName(info.name);
  Fuzz::require(named == code || named == ErrorCode::Internal, "a name maps to its number");
  Fuzz::require(make_error_code(code).message() == make_error_code(named).message(), "a name has its number's message");
}

} // namespace

/// Uses the input as a name, then as a number.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view name = Fuzz::begin(data, size);
  const ErrorCode code = Common::fromDBusName(name);
  if (fromCode(code).name == name)
    Fuzz::accept();
  else
    Fuzz::require(code == ErrorCode::Internal, "an unknown name maps to Internal");
  checkDescription(code);

  std::int32_t number = 0;
  std::memcpy(&number, name.data(), std::min(name.size(), sizeof(number)));
  checkDescription(static_cast<ErrorCode>(number));
  return 0;
}
