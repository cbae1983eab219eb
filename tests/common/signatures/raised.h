// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/error/error.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>

/// Code and message of a Common::Error, for one comparison.
struct Raised {
  Common::ErrorCode code;
  std::string message;

  bool operator==(const Raised&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Raised& raised) {
  return out << static_cast<int>(raised.code) << " \"" << raised.message << '"';
}

/// The error that `action` throws; nothing if it does not throw.
template <typename Action>
std::optional<Raised> raisedBy(Action action) {
  try {
    action();
  } catch (const Common::Error& error) {
    EXPECT_EQ(error.code().category(), Common::errorCategory());
    return Raised{static_cast<Common::ErrorCode>(error.code().value()), error.what()};
  }
  return std::nullopt;
}
