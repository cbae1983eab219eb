// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/dbus_error.h"
#include "common/error/error.h"

#include <exception>
#include <string>

namespace Support {

/// The Common::Error that `work` throws, as the short name of its code, ": " and what(). Other exceptions are not
/// caught.
template <typename Work>
std::string errorOf(Work work) {
  try {
    work();
  } catch (const Common::Error& error) {
    if (error.code().category() != Common::errorCategory())
      return std::string("an error of the category ") + error.code().category().name();
    return Common::fromCode(static_cast<Common::ErrorCode>(error.code().value())).shortName + ": " + error.what();
  }
  return "no error";
}

/// The what() of the standard exception that `work` throws.
template <typename Work>
std::string reasonOf(Work work) {
  try {
    work();
  } catch (const std::exception& exception) {
    return exception.what();
  }
  return "no exception";
}

} // namespace Support
